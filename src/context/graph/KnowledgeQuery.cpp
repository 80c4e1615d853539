#include "context/graph/KnowledgeQuery.h"

#include <unicode/uchar.h>

#include "base/Text.h"

namespace snipwren {
namespace {
/// Letters, marks and numbers: a mark belongs to the letter before it, so it must not split a word.
bool isLetterOrDigit(char32_t scalar) {
    return (U_GET_GC_MASK(static_cast<UChar32>(scalar)) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}
} // namespace

std::size_t KnowledgeQuery::wordCount(std::string_view text) {
    std::size_t count = 0;
    bool inside = false;
    for (std::size_t i = 0; i < text.size();) {
        const bool letter = !isWhitespaceOrNewline(nextScalar(text, i));
        if (letter && !inside) ++count;
        inside = letter;
    }
    return count;
}

std::vector<std::string> KnowledgeQuery::terms(std::string_view text) {
    std::vector<std::string> terms;
    std::size_t start = 0;
    const auto endPiece = [&](std::size_t end) {
        const std::string_view piece = text.substr(start, end - start);
        // One character is one grapheme cluster: a letter with its marks does not count twice.
        if (lastCharacterStart(piece) == 0) return;
        const bool isOperator = piece == "AND" || piece == "OR" || piece == "NOT";
        terms.push_back((isOperator ? asciiLowercased(piece) : std::string(piece)) + "*");
    };
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t here = i;
        if (isLetterOrDigit(nextScalar(text, i))) continue;
        endPiece(here);
        start = i;
    }
    endPiece(text.size());
    return terms;
}

std::string KnowledgeQuery::cleanFTSQuery(std::string_view text) {
    std::string query;
    for (const std::string& term : terms(text)) query += (query.empty() ? "" : " ") + term;
    return query;
}
} // namespace snipwren
