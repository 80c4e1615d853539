#include "cli/Printable.h"

#include "base/Text.h"

namespace snipwren {
std::string printable(std::string_view text) {
    std::string out;
    for (std::size_t offset = 0; offset < text.size();) {
        const char32_t scalar = nextScalar(text, offset);
        const bool isControl = scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0);
        // Marks that turn the direction of writing could make a line read as another.
        const bool turnsDirection = (scalar >= 0x202A && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
        if (isWhitespaceOrNewline(scalar)) {
            out += ' ';
        } else if (!isControl && !turnsDirection) {
            appendUtf8(out, scalar);
        }
    }
    return collapsedWhitespace(trimmed(out));
}
} // namespace snipwren
