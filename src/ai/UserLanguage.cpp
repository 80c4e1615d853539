#include "ai/UserLanguage.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace snipwren {
std::string languageName(const std::string& locale) {
    const icu::Locale wanted(locale.c_str());
    if (wanted.isBogus() || *wanted.getLanguage() == '\0') return "English";
    icu::UnicodeString name;
    wanted.getDisplayLanguage(icu::Locale::getEnglish(), name);
    std::string text;
    name.toUTF8String(text);
    // ICU answers with the code itself for a language that it does not know.
    return text.empty() || text == wanted.getLanguage() ? "English" : text;
}
} // namespace snipwren
