#pragma once

#include <cstddef>
#include <string_view>

namespace snipwren::scan {
/// Hand-written counterparts of the regular-expression classes that the parsers are defined by, equal to the engine's own
/// (base/Regex) so that no expression object is needed on the fast paths.

/// \s
bool isSpace(char32_t scalar);
/// \d: the decimal digits of every script.
bool isDigit(char32_t scalar);
/// \b between the characters before and after `offset`.
bool isWordBoundary(std::string_view text, std::size_t offset);

inline bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
inline bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
/// `offset` moved past a run of \s or \d.
std::size_t skipSpaces(std::string_view text, std::size_t offset);
std::size_t skipDigits(std::string_view text, std::size_t offset);
/// Moves `offset` (not 0) back over one character, which it returns.
char32_t previousScalar(std::string_view text, std::size_t& offset);
/// `\d+(?:\.\d+)?` at `offset`: its end, or `offset` where there is no digit.
std::size_t skipDecimal(std::string_view text, std::size_t offset);
} // namespace snipwren::scan
