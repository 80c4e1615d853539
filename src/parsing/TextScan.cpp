#include "parsing/TextScan.h"

#include <unicode/uchar.h>

#include "base/Text.h"

namespace snipwren::scan {
namespace {
bool isCombining(char32_t scalar) {
    if (scalar < 0x80) return false;
    const auto c = static_cast<UChar32>(scalar);
    return u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND) || u_charType(c) == U_FORMAT_CHAR;
}

bool isWordCharacter(char32_t scalar) {
    if (scalar < 0x80) {
        const char c = static_cast<char>(scalar);
        return isAsciiLetter(c) || isAsciiDigit(c) || c == '_';
    }
    if (scalar == 0x200C || scalar == 0x200D) return true;
    const auto c = static_cast<UChar32>(scalar);
    constexpr uint32_t classes = U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK;
    return u_isUAlphabetic(c) || (U_GET_GC_MASK(c) & classes) != 0;
}
} // namespace

bool isSpace(char32_t scalar) {
    if (scalar < 0x80) return scalar == ' ' || (scalar >= 0x09 && scalar <= 0x0D);
    return scalar != 0x200B && isWhitespaceOrNewline(scalar);
}

bool isDigit(char32_t scalar) {
    if (scalar < 0x80) return scalar >= '0' && scalar <= '9';
    return u_charType(static_cast<UChar32>(scalar)) == U_DECIMAL_DIGIT_NUMBER;
}

char32_t previousScalar(std::string_view text, std::size_t& offset) {
    std::size_t start = offset - 1;
    while (start > 0 && offset - start < 4 && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    std::size_t next = start;
    char32_t scalar = nextScalar(text, next);
    if (next != offset) { // A stray byte stands for itself.
        start = offset - 1;
        scalar = 0xFFFD;
    }
    offset = start;
    return scalar;
}

bool isWordBoundary(std::string_view text, std::size_t offset) {
    bool after = false;
    if (offset < text.size()) {
        std::size_t next = offset;
        const char32_t scalar = nextScalar(text, next);
        if (isCombining(scalar)) return false;
        after = isWordCharacter(scalar);
    }
    bool before = false;
    for (std::size_t at = offset; at > 0;) {
        const char32_t scalar = previousScalar(text, at);
        if (isCombining(scalar)) continue;
        before = isWordCharacter(scalar);
        break;
    }
    return before != after;
}

std::size_t skipSpaces(std::string_view text, std::size_t offset) {
    while (offset < text.size()) {
        std::size_t next = offset;
        if (!isSpace(nextScalar(text, next))) break;
        offset = next;
    }
    return offset;
}

std::size_t skipDigits(std::string_view text, std::size_t offset) {
    while (offset < text.size()) {
        std::size_t next = offset;
        if (!isDigit(nextScalar(text, next))) break;
        offset = next;
    }
    return offset;
}

std::size_t skipDecimal(std::string_view text, std::size_t offset) {
    const std::size_t whole = skipDigits(text, offset);
    if (whole == offset || whole >= text.size() || text[whole] != '.') return whole;
    const std::size_t end = skipDigits(text, whole + 1);
    return end > whole + 1 ? end : whole;
}
} // namespace snipwren::scan
