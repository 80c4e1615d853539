#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Result.h"
#include "store/Database.h"

namespace snipwren {
/// Finds the best rows for words that are in a large part of all notes. The engine's own ORDER BY rank visits every
/// matching row several times, which takes longer than a keystroke; here the rows of each prefix are counted once, kept
/// while the index stands, and ranked by the same formula. Results are those of the engine. Belongs to the index's queue.
class KnowledgeRanker {
public:
    /// With fewer rows than this the engine itself is the faster way.
    static constexpr std::size_t worthwhile = 3000;

    KnowledgeRanker() = default;
    KnowledgeRanker(const KnowledgeRanker&) = delete;
    KnowledgeRanker& operator=(const KnowledgeRanker&) = delete;

    /// Row numbers, best first. None when the engine is to be asked instead: few rows, or a term that is in none.
    Result<std::optional<std::vector<std::int64_t>>, DatabaseError>
    best(Database& index, std::uint64_t generation, const std::vector<std::string>& terms, std::size_t limit);

private:
    struct Hit {
        std::uint32_t row = 0;
        std::uint32_t count = 0;
    };
    using Tally = std::vector<Hit>;
    struct Kept {
        std::shared_ptr<const Tally> tally;
        std::list<std::string>::iterator age;
    };

    void forget();
    Result<void, DatabaseError> prepareFor(Database& index, std::uint64_t generation);
    Result<std::shared_ptr<const Tally>, DatabaseError> tallyOf(Database& index, const std::string& term);
    void keep(const std::string& term, std::shared_ptr<const Tally> tally);
    std::vector<std::int64_t> ranked(const std::vector<std::shared_ptr<const Tally>>& tallies, std::size_t limit) const;

    std::uint64_t generation_ = 0;
    /// The words of each row, in the order of the row numbers.
    Tally lengths_;
    double averageLength_ = 0;
    std::unordered_map<std::string, Kept> kept_;
    std::list<std::string> ages_; // Most recently used first.
    std::size_t keptBytes_ = 0;
};
} // namespace snipwren
