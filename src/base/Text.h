#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// A range in UTF-16 code units, as accessibility interfaces count.
struct Utf16Range {
    std::size_t start = 0;
    std::size_t length = 0;
    friend bool operator==(const Utf16Range&, const Utf16Range&) = default;
};

/// Without the white space and newlines (Unicode's) at both ends.
std::string_view trimmed(std::string_view text);
/// Unicode white space and newlines (U+0009 to U+000D, U+0085, U+00A0, the space separators, U+2028, U+2029, U+200B).
bool isWhitespaceOrNewline(char32_t scalar);
/// Every run of white space, as the regular expression \s+ has it (so not U+200B), replaced by one blank.
std::string collapsedWhitespace(std::string_view text);

/// Full Unicode lower case, independent of the locale.
std::string lowercased(std::string_view text);
/// ASCII letters only; other bytes unchanged. For identifiers and protocol words.
std::string asciiLowercased(std::string_view text);

bool isValidUtf8(std::string_view text);
/// Each invalid sequence becomes U+FFFD.
std::string sanitizedUtf8(std::string_view text);
std::size_t utf16Length(std::string_view text);
/// Byte offset of a UTF-16 offset; inside a surrogate pair it is the pair's start; past the end it is the size.
std::size_t utf8Offset(std::string_view text, std::size_t utf16Offset);
std::size_t utf16Offset(std::string_view text, std::size_t utf8Offset);
/// Invalid sequences become U+FFFD.
std::u16string toUtf16(std::string_view text);
/// Unpaired surrogates become U+FFFD.
std::string toUtf8(std::u16string_view text);
/// Code points; an invalid byte counts as one.
std::size_t codePointCount(std::string_view text);
void appendUtf8(std::string& text, char32_t scalar);
/// The scalar at `offset`, which moves past it; U+FFFD (and one byte) for an invalid sequence.
char32_t nextScalar(std::string_view text, std::size_t& offset);
/// The offset at which the last character (extended grapheme cluster) begins; 0 for empty text.
std::size_t lastCharacterStart(std::string_view text);

/// Keeps empty pieces.
std::vector<std::string_view> split(std::string_view text, char separator);
std::string replacedAll(std::string_view text, std::string_view what, std::string_view with);
/// The leading tilde as the home folder; other text unchanged.
std::string expandedTilde(std::string_view path, std::string_view home);
} // namespace snipwren
