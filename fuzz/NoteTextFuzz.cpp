// Any note and any query: the clean-up agrees with its definition by regular expressions, and no query text makes the
// full-text engine report an error.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "base/Regex.h"
#include "base/Text.h"
#include "context/graph/KnowledgeQuery.h"
#include "context/graph/KnowledgeStore.h"
#include "context/notes/NoteText.h"

namespace {
using namespace snipwren;

std::string byRegularExpressions(std::string out) {
    static const std::pair<Regex, std::string> steps[] = {
        {Regex::compile(R"(^#+\s+)").value(), ""},
        {Regex::compile(R"(\*\*|\*)").value(), ""},
        {Regex::compile(R"(__|_)").value(), ""},
        {Regex::compile(R"(\[([^\]]+)\]\([^\)]+\))").value(), "$1"},
        {Regex::compile(R"(!\[([^\]]*)\]\([^\)]+\))").value(), ""},
        {Regex::compile(R"(\s+)").value(), " "},
    };
    for (const auto& [regex, with] : steps) {
        const auto replaced = regex.replacingAll(out, with);
        if (!replaced) return {};
        out = *replaced;
    }
    return std::string(trimmed(out));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string stripped = NoteText::stripMarkdown(text);
    if (size < 2000 && isValidUtf8(text)) // The regular expressions take quadratic time.
        if (const std::string want = byRegularExpressions(std::string(text)); !want.empty() && want != stripped)
            std::abort();

    static KnowledgeStore store = KnowledgeStore::open(Database::inMemory).value();
    static const bool filled = store.insert({"title", "salt and pepper or not near here", "/p", "s"}).has_value();
    const std::string query = KnowledgeQuery::cleanFTSQuery(text.substr(0, 4000));
    if (!filled || query.empty()) return 0;
    auto statement =
        store.database().prepare("SELECT title FROM knowledge_fts WHERE knowledge_fts MATCH ? ORDER BY rank;");
    statement->bind(1, query);
    if (!statement->run()) std::abort();
    return 0;
}
