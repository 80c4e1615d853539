#include "parsing/dates/DateTokens.h"

#include <algorithm>

#include <unicode/uchar.h>

#include "base/Text.h"
#include "parsing/TextScan.h"

namespace snipwren {
namespace {
bool isLetterAt(std::string_view text, std::size_t at, std::size_t& next) {
    const char c = text[at];
    if (static_cast<unsigned char>(c) < 0x80) {
        next = at + 1;
        return scan::isAsciiLetter(c);
    }
    next = at;
    return u_isUAlphabetic(static_cast<UChar32>(nextScalar(text, next))) != 0;
}
} // namespace

DateTokens::DateTokens(std::string_view text, const DateLexicon& lexicon) : text_(text) {
    tokens_.reserve(text.size() / 3 + 8);
    bool spaced = true;
    bool newLine = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char c = text[at];
        if (isLetterAt(text, start, at)) {
            for (std::size_t next = at; next < text.size() && isLetterAt(text, next, next);) at = next;
            addWord(lexicon, start, at);
        } else if (scan::isAsciiDigit(c)) {
            DateToken token;
            token.kind = DateWord::number;
            std::int64_t value = 0;
            at = start;
            for (; at < text.size() && scan::isAsciiDigit(text[at]); ++at)
                value = std::min<std::int64_t>(value * 10 + (text[at] - '0'), 999999999);
            token.value = static_cast<std::int32_t>(value);
            token.digits = static_cast<std::uint8_t>(std::min<std::size_t>(at - start, 255));
            tokens_.push_back(token);
        } else {
            at = start;
            const char32_t scalar = nextScalar(text, at);
            if (isWhitespaceOrNewline(scalar)) {
                spaced = true;
                newLine |= scalar == '\n' || scalar == '\r' || scalar == 0x2028 || scalar == 0x2029 || scalar == 0x85;
                continue;
            }
            DateToken token;
            token.kind = DateWord::symbol;
            token.value = static_cast<std::int32_t>(scalar);
            tokens_.push_back(token);
        }
        DateToken& token = tokens_.back();
        token.start = static_cast<std::uint32_t>(start);
        token.end = static_cast<std::uint32_t>(at);
        token.spaced = spaced;
        token.newLine = newLine;
        spaced = newLine = false;
        constexpr std::uint8_t glueFlag = DateWordFlag::gluedOnly;
        const bool afterDigit =
            !token.spaced && tokens_.size() > 1 && tokens_[tokens_.size() - 2].kind == DateWord::number;
        if ((token.flags & glueFlag) != 0 && !afterDigit && token.kind != DateWord::meridiem)
            token.kind = DateWord::plain;
    }
    tokens_.emplace_back();
}

void DateTokens::addWord(const DateLexicon& lexicon, std::size_t start, std::size_t end) {
    DateToken token;
    token.kind = DateWord::plain;
    const std::string_view word = text_.substr(start, end - start);
    token.capital = word.front() >= 'A' && word.front() <= 'Z';
    if (word.size() <= DateLexicon::maxWordLength) {
        char lower[DateLexicon::maxWordLength];
        std::size_t capitals = 0;
        for (std::size_t i = 0; i < word.size(); ++i) {
            lower[i] = scan::asciiLower(word[i]);
            capitals += lower[i] != word[i] ? 1U : 0U;
        }
        token.allCapital = capitals == word.size();
        const DateLexiconEntry* entry = lexicon.find(std::string_view(lower, word.size()));
        if (entry && ((entry->flags & DateWordFlag::upperOnly) == 0 || token.allCapital)) {
            token.kind = entry->kind;
            token.value = entry->value;
            token.flags = entry->flags;
        }
    }
    tokens_.push_back(token);
}

bool DateTokens::isDash(std::size_t index) const {
    return is(index, U'-') || is(index, U'\u2013') || is(index, U'\u2014') || is(index, U'\u2012');
}
} // namespace snipwren
