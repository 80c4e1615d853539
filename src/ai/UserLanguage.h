#pragma once

#include <string>

namespace snipwren {
/// The English name of a locale's language ("German" for de_DE), as a model understands it; "English" when unknown.
std::string languageName(const std::string& locale);
} // namespace snipwren
