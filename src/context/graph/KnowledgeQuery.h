#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// Turns what a user types into a query of the full-text engine: no typed character reaches the engine as syntax.
class KnowledgeQuery {
public:
    KnowledgeQuery() = delete;

    /// Pieces between white space and newlines.
    static std::size_t wordCount(std::string_view text);
    /// The runs of letters and digits that are longer than one character, each with "*" for a prefix search. The
    /// engine's operator words come in lower case, which its tokenizer treats alike.
    static std::vector<std::string> terms(std::string_view text);
    /// The terms joined by blanks: the engine requires all of them. Empty when there is none.
    static std::string cleanFTSQuery(std::string_view text);
};
} // namespace snipwren
