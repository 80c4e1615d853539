#pragma once

#include <string>
#include <string_view>

namespace snipwren {
/// The text on one line and without control characters: what a program once put on the clipboard or into a field must not
/// drive the terminal that lists it.
std::string printable(std::string_view text);
} // namespace snipwren
