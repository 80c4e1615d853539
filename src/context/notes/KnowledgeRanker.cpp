#include "context/notes/KnowledgeRanker.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <sqlite3.h>

namespace snipwren {
namespace {
constexpr std::size_t mostKeptBytes = 24u * 1024 * 1024;
constexpr const char* tallyQuery =
    "SELECT rowid, snipwren_tally(knowledge_fts) FROM knowledge_fts WHERE knowledge_fts MATCH ?;";

fts5_api* fullTextInterface(sqlite3* database) {
    fts5_api* api = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, "SELECT fts5(?1)", -1, &statement, nullptr) != SQLITE_OK) return nullptr;
    sqlite3_bind_pointer(statement, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(statement);
    sqlite3_finalize(statement);
    return api;
}

/// How often the query's only phrase occurs in the row.
void countOccurrences(const Fts5ExtensionApi* api, Fts5Context* context, sqlite3_context* result, int,
                      sqlite3_value**) {
    Fts5PhraseIter place;
    int column = 0;
    int offset = 0;
    int count = 0;
    const int code = api->xPhraseFirst(context, 0, &place, &column, &offset);
    for (; code == SQLITE_OK && column >= 0; api->xPhraseNext(context, &place, &column, &offset)) ++count;
    code == SQLITE_OK ? sqlite3_result_int(result, count) : sqlite3_result_error_code(result, code);
}

DatabaseError missingInterface() { return {SQLITE_ERROR, "The full-text module of SQLite is missing."}; }
} // namespace

void KnowledgeRanker::forget() {
    kept_.clear();
    ages_.clear();
    keptBytes_ = 0;
    lengths_.clear();
    generation_ = 0;
}

Result<void, DatabaseError> KnowledgeRanker::prepareFor(Database& index, std::uint64_t generation) {
    if (generation_ == generation) return {};
    forget();
    if (!index.prepare(tallyQuery)) { // A connection that has not met this object yet.
        fts5_api* const api = fullTextInterface(index.handle());
        if (!api) return unexpected(missingInterface());
        if (const int code = api->xCreateFunction(api, "snipwren_tally", nullptr, &countOccurrences, nullptr);
            code != SQLITE_OK)
            return unexpected(DatabaseError{code, index.message()});
    }
    // The engine notes each row's words per column, as variable-length integers.
    auto sizes = index.prepare("SELECT id, sz FROM knowledge_fts_docsize ORDER BY id;");
    if (!sizes) return unexpected(sizes.error());
    double words = 0;
    while (true) {
        const auto row = sizes->step();
        if (!row) return unexpected(row.error());
        if (!*row) break;
        std::uint64_t total = 0;
        std::uint64_t value = 0;
        for (const char c : sizes->blob(1)) {
            const auto byte = static_cast<unsigned char>(c);
            value = (value << 7) | (byte & 0x7Fu);
            if (byte & 0x80u) continue;
            total += value;
            value = 0;
        }
        lengths_.push_back({static_cast<std::uint32_t>(sizes->integer(0)), static_cast<std::uint32_t>(total)});
        words += static_cast<double>(total);
    }
    averageLength_ = lengths_.empty() ? 0 : words / static_cast<double>(lengths_.size());
    generation_ = generation;
    return {};
}

void KnowledgeRanker::keep(const std::string& term, std::shared_ptr<const Tally> tally) {
    const auto bytesOf = [](const std::string& name, const Tally& hits) {
        return name.size() + hits.size() * sizeof(Hit) + 128;
    };
    keptBytes_ += bytesOf(term, *tally);
    ages_.push_front(term);
    kept_[term] = {std::move(tally), ages_.begin()};
    while (keptBytes_ > mostKeptBytes && ages_.size() > 1) {
        const auto oldest = kept_.find(ages_.back());
        keptBytes_ -= bytesOf(oldest->first, *oldest->second.tally);
        kept_.erase(oldest);
        ages_.pop_back();
    }
}

Result<std::shared_ptr<const KnowledgeRanker::Tally>, DatabaseError> KnowledgeRanker::tallyOf(Database& index,
                                                                                              const std::string& term) {
    if (const auto found = kept_.find(term); found != kept_.end()) {
        ages_.splice(ages_.begin(), ages_, found->second.age);
        return found->second.tally;
    }
    auto statement = index.prepare(tallyQuery);
    if (!statement) return unexpected(statement.error());
    statement->bind(1, term);
    Tally hits;
    while (true) {
        const auto row = statement->step();
        if (!row) return unexpected(row.error());
        if (!*row) break;
        const std::int64_t number = statement->integer(0);
        if (number < 0 || number > std::numeric_limits<std::uint32_t>::max()) {
            hits.clear(); // As if in no row: the engine is asked.
            break;
        }
        hits.push_back({static_cast<std::uint32_t>(number), static_cast<std::uint32_t>(statement->integer(1))});
    }
    hits.shrink_to_fit();
    auto tally = std::make_shared<const Tally>(std::move(hits));
    keep(term, tally);
    return tally;
}

Result<std::optional<std::vector<std::int64_t>>, DatabaseError>
KnowledgeRanker::best(Database& index, std::uint64_t generation, const std::vector<std::string>& terms,
                      std::size_t limit) {
    if (auto ready = prepareFor(index, generation); !ready) return unexpected(ready.error());
    if (lengths_.size() < worthwhile) return std::nullopt;
    std::vector<std::shared_ptr<const Tally>> tallies;
    std::size_t rows = 0;
    for (const std::string& term : terms) {
        auto tally = tallyOf(index, term);
        if (!tally) return unexpected(tally.error());
        // Absent from all notes, or no word at all for the engine, which then ignores it.
        if ((*tally)->empty()) return std::nullopt;
        rows += (*tally)->size();
        tallies.push_back(std::move(*tally));
    }
    if (rows < worthwhile) return std::nullopt;
    return ranked(tallies, limit);
}

std::vector<std::int64_t> KnowledgeRanker::ranked(const std::vector<std::shared_ptr<const Tally>>& tallies,
                                                  std::size_t limit) const {
    // Okapi BM25 exactly as the engine computes it, term by term in the same order, so that equal scores are equal.
    constexpr double k1 = 1.2;
    constexpr double b = 0.75;
    const auto rowCount = static_cast<double>(lengths_.size());
    std::vector<double> weights;
    for (const auto& tally : tallies) {
        const auto rows = static_cast<double>(tally->size());
        const double weight = std::log((rowCount - rows + 0.5) / (rows + 0.5));
        weights.push_back(weight <= 0.0 ? 1e-6 : weight);
    }
    struct Scored {
        double score = 0;
        std::uint32_t row = 0;
    };
    const auto better = [](const Scored& x, const Scored& y) {
        return x.score != y.score ? x.score > y.score : x.row < y.row;
    };
    std::vector<Scored> top;
    std::vector<std::size_t> at(tallies.size(), 0);
    const auto shortest =
        static_cast<std::size_t>(std::min_element(tallies.begin(), tallies.end(),
                                                  [](const auto& x, const auto& y) { return x->size() < y->size(); })
                                 - tallies.begin());
    std::size_t length = 0;
    for (const Hit& candidate : *tallies[shortest]) {
        bool everywhere = true;
        for (std::size_t i = 0; i < tallies.size() && everywhere; ++i) {
            const Tally& tally = *tallies[i];
            while (at[i] < tally.size() && tally[at[i]].row < candidate.row) ++at[i];
            everywhere = at[i] < tally.size() && tally[at[i]].row == candidate.row;
        }
        if (!everywhere) continue;
        while (length < lengths_.size() && lengths_[length].row < candidate.row) ++length;
        const double words = length < lengths_.size() ? static_cast<double>(lengths_[length].count) : 0;
        Scored scored{0, candidate.row};
        for (std::size_t i = 0; i < tallies.size(); ++i) {
            const auto count = static_cast<double>((*tallies[i])[at[i]].count);
            scored.score += weights[i] * ((count * (k1 + 1.0)) / (count + k1 * (1 - b + b * words / averageLength_)));
        }
        if (top.size() == limit && !better(scored, top.back())) continue;
        if (top.size() == limit) top.pop_back();
        top.insert(std::upper_bound(top.begin(), top.end(), scored, better), scored);
    }
    std::vector<std::int64_t> rows;
    rows.reserve(top.size());
    for (const Scored& scored : top) rows.push_back(scored.row);
    return rows;
}
} // namespace snipwren
