#include "context/graph/KnowledgeSuggestionEngine.h"

#include <algorithm>
#include <functional>

#include "base/Random.h"
#include "base/Text.h"
#include "context/graph/KnowledgeQuery.h"
#include "context/notes/NoteText.h"
#include "context/notes/SecondBrainIndexer.h"

namespace snipwren {
namespace {
constexpr const char* searchStatement =
    "SELECT title, snippet(knowledge_fts, 1, '', '', '...', 25), path, source \nFROM knowledge_fts \n"
    "WHERE knowledge_fts MATCH ? \nORDER BY rank \nLIMIT 3;";
constexpr const char* longSearchStatement =
    "SELECT title, snippet(knowledge_fts, 1, '', '', '...', 25), path, source \nFROM knowledge_fts \n"
    "WHERE knowledge_fts MATCH ? \nORDER BY rank \nLIMIT ?;";
constexpr std::size_t trigram = 3;

KnowledgeSuggestionModel modelFrom(const Statement& row, Random& random) {
    return {random.uuid(), row.text(0), row.text(1), row.text(2), row.text(3)};
}

/// The text around the first of the words, for tables whose tokens are no words.
std::string excerpt(const std::string& content, const std::vector<std::string>& words) {
    constexpr std::size_t before = 12;
    constexpr std::size_t characters = 48;
    const std::string lower = lowercased(content);
    std::size_t hit = std::string::npos;
    for (const std::string& word : words) hit = std::min(hit, lower.find(word));
    // Lower case may move offsets; then the excerpt shows the beginning.
    if (hit == std::string::npos || lower.size() != content.size()) hit = 0;
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i <= hit && i < content.size();) {
        starts.push_back(i);
        nextScalar(content, i);
    }
    const std::size_t begin = starts.size() > before ? starts[starts.size() - 1 - before] : 0;
    std::size_t end = begin;
    for (std::size_t n = 0; n < characters && end < content.size(); ++n) nextScalar(content, end);
    return (begin > 0 ? "..." : "") + content.substr(begin, end - begin) + (end < content.size() ? "..." : "");
}

bool holdsAll(const std::string& text, const std::vector<std::string>& words) {
    return std::all_of(words.begin(), words.end(),
                       [&](const std::string& word) { return text.find(word) != std::string::npos; });
}
} // namespace

std::vector<KnowledgeSuggestionModel> KnowledgeSuggestionEngine::search(const std::string& queryText) {
    if (KnowledgeQuery::wordCount(queryText) < minimumWords) return {};
    return matching(queryText, mostSuggestions);
}

std::vector<KnowledgeSuggestionModel> KnowledgeSuggestionEngine::find(const std::string& queryText, std::size_t limit) {
    if (!NoteText::hasUnspacedScript(queryText)) return matching(queryText, limit);
    return indexer_.getDatabaseQueue().call([&] { return byTrigrams(indexer_.store().database(), queryText, limit); });
}

std::vector<KnowledgeSuggestionModel> KnowledgeSuggestionEngine::matching(const std::string& queryText,
                                                                          std::size_t limit) {
    const std::vector<std::string> terms = KnowledgeQuery::terms(queryText);
    if (terms.empty()) return {};
    std::string query;
    for (const std::string& term : terms) query += (query.empty() ? "" : " ") + term;
    return indexer_.getDatabaseQueue().call([&] {
        const std::uint64_t generation = indexer_.generation();
        Database& index = indexer_.store().database();
        // A fault here, as in the statement, means no results: what is typed must never raise an error.
        if (auto rows = ranker_.best(index, generation, terms, limit); rows && *rows)
            return byRows(index, query, **rows);
        return byStatement(index, query, limit);
    });
}

std::vector<KnowledgeSuggestionModel> KnowledgeSuggestionEngine::byStatement(Database& index, const std::string& query,
                                                                             std::size_t limit) {
    auto statement = index.prepare(limit == mostSuggestions ? searchStatement : longSearchStatement);
    if (!statement) return {};
    statement->bind(1, query);
    if (limit != mostSuggestions) statement->bind(2, limit);
    return statement->rows([&](const Statement& row) { return modelFrom(row, random_); }).value_or(Models());
}

std::vector<KnowledgeSuggestionModel> KnowledgeSuggestionEngine::byRows(Database& index, const std::string& query,
                                                                        const std::vector<std::int64_t>& rows) {
    // The snippets come from the engine too, asked about these rows alone: a table that holds nothing else.
    if (!desk_) {
        auto opened = Database::open(Database::inMemory);
        if (!opened
            || !opened->execute("CREATE VIRTUAL TABLE knowledge_fts USING fts5(\n    title, content, path, source, "
                                "tokenize='porter unicode61'\n);"))
            return {};
        desk_ = std::move(*opened);
    }
    Models models;
    const auto fill = [&]() -> Result<void, DatabaseError> {
        for (const std::int64_t row : rows) {
            auto note = index.prepare("SELECT title, content, path, source FROM knowledge_fts WHERE rowid = ?;");
            if (!note) return unexpected(note.error());
            note->bind(1, row);
            const auto stepped = note->step();
            if (!stepped) return unexpected(stepped.error());
            if (!*stepped) continue;
            models.push_back({random_.uuid(), note->text(0), {}, note->text(2), note->text(3)});
            if (auto copied = desk_->run(
                    "INSERT INTO knowledge_fts (rowid, title, content, path, source) VALUES (?, ?, ?, ?, ?);",
                    models.size(), note->text(0), note->text(1), note->text(2), note->text(3));
                !copied)
                return copied;
        }
        auto snippets = desk_->prepare("SELECT rowid, snippet(knowledge_fts, 1, '', '', '...', 25) FROM knowledge_fts "
                                       "WHERE knowledge_fts MATCH ?;");
        if (!snippets) return unexpected(snippets.error());
        snippets->bind(1, query);
        auto taken = snippets->rows([&](const Statement& row) {
            models[static_cast<std::size_t>(row.integer(0)) - 1].snippet = row.text(1);
            return 0;
        });
        if (!taken) return unexpected(taken.error());
        return {};
    };
    if (!desk_->execute("BEGIN;")) return {};
    const auto filled = fill();
    (void)desk_->execute("ROLLBACK;"); // Leaves the table empty for the next search.
    return filled ? models : Models();
}

std::vector<KnowledgeSuggestionModel>
KnowledgeSuggestionEngine::byTrigrams(Database& index, const std::string& queryText, std::size_t limit) {
    // Words of three and more characters are looked up; shorter ones have no trigram and are looked for in the text.
    std::vector<std::string> words;
    std::string query;
    for (std::string word : KnowledgeQuery::terms(queryText)) {
        word.pop_back(); // The star.
        words.push_back(lowercased(word));
    }
    if (words.empty()) { // A single character is a word in these scripts.
        const std::string pieces = collapsedWhitespace(trimmed(queryText));
        for (const std::string_view piece : split(pieces, ' ')) words.push_back(lowercased(piece));
    }
    for (const std::string& word : words)
        if (codePointCount(word) >= trigram) query += (query.empty() ? "\"" : " \"") + word + "\"";
    auto statement = query.empty()
                         ? index.prepare("SELECT f.title, f.content, f.path, f.source FROM knowledge_trigram t "
                                         "JOIN knowledge_fts f ON f.rowid = t.rowid ORDER BY t.rowid;")
                         : index.prepare("SELECT f.title, f.content, f.path, f.source FROM knowledge_trigram t "
                                         "JOIN knowledge_fts f ON f.rowid = t.rowid "
                                         "WHERE knowledge_trigram MATCH ? ORDER BY t.rank;");
    if (!statement) return {};
    if (!query.empty()) statement->bind(1, query);
    Models models;
    while (models.size() < limit) {
        const auto row = statement->step();
        if (!row || !*row) break;
        KnowledgeSuggestionModel model = modelFrom(*statement, random_);
        if (!holdsAll(lowercased(model.title + "\n" + model.snippet), words)) continue;
        model.snippet = excerpt(model.snippet, words);
        models.push_back(std::move(model));
    }
    return models;
}
} // namespace snipwren

std::size_t std::hash<snipwren::KnowledgeSuggestionModel>::operator()(
    const snipwren::KnowledgeSuggestionModel& model) const noexcept {
    std::size_t combined = 0;
    for (const std::string* part : {&model.id, &model.title, &model.snippet, &model.filePath, &model.sourceName})
        combined = combined * 31 + std::hash<std::string>()(*part);
    return combined;
}
