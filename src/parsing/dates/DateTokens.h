#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "parsing/dates/DateLexicon.h"

namespace snipwren {
/// A word, a run of ASCII digits or a single other character; white space lies between tokens.
struct DateToken {
    std::uint32_t start = 0; // Bytes.
    std::uint32_t end = 0;
    DateWord kind = DateWord::end;
    std::uint8_t flags = 0;  // DateWordFlag.
    std::uint8_t digits = 0; // Of a number, at most 255.
    bool spaced = true;      // White space or the text's beginning before it.
    bool newLine = false;    // A line break before it.
    bool capital = false;    // Begins with a capital.
    bool allCapital = false;
    std::int32_t value = 0; // Of the word or number (at most 999999999), or the scalar of a symbol.
};

/// The tokens of a text. Reading past either end gives the end token.
class DateTokens {
public:
    DateTokens(std::string_view text, const DateLexicon& lexicon);

    std::size_t size() const { return tokens_.size() - 1; }
    const DateToken& operator[](std::size_t index) const { return tokens_[index < size() ? index : size()]; }
    /// The token before `index`; the end token before the first.
    const DateToken& before(std::size_t index) const { return tokens_[index == 0 ? size() : index - 1]; }
    std::string_view text(const DateToken& token) const { return text_.substr(token.start, token.end - token.start); }
    /// Whether the token is this symbol.
    bool is(std::size_t index, char32_t symbol) const {
        const DateToken& token = (*this)[index];
        return token.kind == DateWord::symbol && static_cast<char32_t>(token.value) == symbol;
    }
    bool is(std::size_t index, DateWord kind) const { return (*this)[index].kind == kind; }
    /// True when nothing stands between this token and the one before it.
    bool glued(std::size_t index) const { return index > 0 && index < size() && !tokens_[index].spaced; }
    bool isDash(std::size_t index) const;
    bool isApostrophe(std::size_t index) const { return is(index, U'\'') || is(index, U'\u2019'); }

private:
    void addWord(const DateLexicon& lexicon, std::size_t start, std::size_t end);

    std::string_view text_;
    std::vector<DateToken> tokens_;
};
} // namespace snipwren
