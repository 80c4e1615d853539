#include "base/Text.h"

#include <algorithm>
#include <memory>

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace snipwren {
namespace {
icu::StringPiece piece(std::string_view text) { return {text.data(), static_cast<int32_t>(text.size())}; }
} // namespace

bool isWhitespaceOrNewline(char32_t scalar) {
    if (scalar < 0x80) return scalar == ' ' || (scalar >= 0x09 && scalar <= 0x0D);
    return scalar == 0x85 || scalar == 0x200B || scalar == 0x2028 || scalar == 0x2029
           || u_charType(static_cast<UChar32>(scalar)) == U_SPACE_SEPARATOR;
}

char32_t nextScalar(std::string_view text, std::size_t& offset) {
    const auto first = static_cast<unsigned char>(text[offset]);
    if (first < 0x80) {
        ++offset;
        return first;
    }
    auto index = static_cast<int32_t>(0);
    // A window keeps the 32-bit index of ICU's macro valid for any text length.
    const std::string_view window = text.substr(offset, 4);
    UChar32 scalar = 0;
    U8_NEXT(reinterpret_cast<const uint8_t*>(window.data()), index, static_cast<int32_t>(window.size()), scalar);
    if (scalar < 0) {
        ++offset;
        return 0xFFFD;
    }
    offset += static_cast<std::size_t>(index);
    return static_cast<char32_t>(scalar);
}

std::string_view trimmed(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t next = begin;
        if (!isWhitespaceOrNewline(nextScalar(text, next))) break;
        begin = next;
    }
    std::size_t end = text.size();
    while (end > begin) {
        std::size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
        std::size_t next = start;
        if (!isWhitespaceOrNewline(nextScalar(text, next)) || next != end) break;
        end = start;
    }
    return text.substr(begin, end - begin);
}

std::string collapsedWhitespace(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t start = i;
        const char32_t scalar = nextScalar(text, i);
        if (!isWhitespaceOrNewline(scalar) || scalar == 0x200B) {
            out.append(text.substr(start, i - start));
        } else if (out.empty() || out.back() != ' ') {
            out += ' ';
        }
    }
    return out;
}

std::string asciiLowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string lowercased(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return asciiLowercased(text);
    std::string out;
    icu::UnicodeString::fromUTF8(piece(text)).toLower(icu::Locale::getRoot()).toUTF8String(out);
    return out;
}

bool isValidUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t start = i;
        if (nextScalar(text, i) == 0xFFFD && text.substr(start, i - start) != "\xEF\xBF\xBD") return false;
    }
    return true;
}

void appendUtf8(std::string& text, char32_t scalar) {
    uint8_t buffer[U8_MAX_LENGTH];
    int32_t length = 0;
    UBool failed = false;
    U8_APPEND(buffer, length, U8_MAX_LENGTH, static_cast<UChar32>(scalar), failed);
    if (failed) {
        text += "\xEF\xBF\xBD";
    } else {
        text.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
    }
}

std::string sanitizedUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) appendUtf8(out, nextScalar(text, i));
    return out;
}

std::size_t utf16Length(std::string_view text) { return utf16Offset(text, text.size()); }

std::size_t utf16Offset(std::string_view text, std::size_t utf8Offset) {
    std::size_t units = 0;
    for (std::size_t i = 0; i < std::min(utf8Offset, text.size());) units += nextScalar(text, i) > 0xFFFF ? 2 : 1;
    return units;
}

std::size_t utf8Offset(std::string_view text, std::size_t utf16Offset) {
    std::size_t units = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (units >= utf16Offset) return i;
        const std::size_t start = i;
        units += nextScalar(text, i) > 0xFFFF ? 2 : 1;
        if (units > utf16Offset) return start;
    }
    return text.size();
}

std::u16string toUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char32_t scalar = nextScalar(text, i);
        if (scalar > 0xFFFF) {
            out += static_cast<char16_t>(0xD800 + ((scalar - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((scalar - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(scalar);
        }
    }
    return out;
}

std::string toUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        if (!U16_IS_SURROGATE(unit)) {
            appendUtf8(out, unit);
        } else if (U16_IS_SURROGATE_LEAD(unit) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1])) {
            appendUtf8(out, static_cast<char32_t>(U16_GET_SUPPLEMENTARY(unit, text[i + 1])));
            ++i;
        } else {
            appendUtf8(out, 0xFFFD);
        }
    }
    return out;
}

std::size_t codePointCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) nextScalar(text, i);
    return count;
}

std::size_t lastCharacterStart(std::string_view text) {
    if (text.empty()) return 0;
    const auto isPlainAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (isPlainAscii(text.back()) && (text.back() != '\n' || text.size() < 2 || text[text.size() - 2] != '\r'))
        return text.size() - 1; // The common case needs no break iterator.
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    const std::u16string wide = toUtf16(text);
    if (U_FAILURE(status)) return 0;
    breaks->setText(icu::UnicodeString(false, wide.data(), static_cast<int32_t>(wide.size())));
    breaks->last();
    const int32_t start = breaks->previous();
    return start < 0 ? 0 : utf8Offset(text, static_cast<std::size_t>(start));
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string replacedAll(std::string_view text, std::string_view what, std::string_view with) {
    std::string out;
    std::size_t start = 0;
    for (std::size_t hit = 0; !what.empty() && (hit = text.find(what, start)) != std::string_view::npos;) {
        out.append(text.substr(start, hit - start)).append(with);
        start = hit + what.size();
    }
    return out.append(text.substr(start));
}

std::string expandedTilde(std::string_view path, std::string_view home) {
    if (path == "~") return std::string(home);
    if (path.substr(0, 2) == "~/") return std::string(home).append(path.substr(1));
    return std::string(path);
}
} // namespace snipwren
