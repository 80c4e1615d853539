#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "context/notes/KnowledgeRanker.h"

namespace snipwren {
class Log;
class Random;
class SecondBrainIndexer;

/// A note that matches what the user types.
struct KnowledgeSuggestionModel {
    /// Fresh for every result.
    std::string id;
    std::string title;
    std::string snippet;
    std::string filePath;
    std::string sourceName;
    friend bool operator==(const KnowledgeSuggestionModel&, const KnowledgeSuggestionModel&) = default;
};

/// Searches the index on the indexer's queue. Thread safe; every search blocks its caller.
class KnowledgeSuggestionEngine {
public:
    static constexpr std::size_t minimumWords = 3;
    static constexpr std::size_t mostSuggestions = 3;

    KnowledgeSuggestionEngine(SecondBrainIndexer& indexer, Random& random) : indexer_(indexer), random_(random) {}

    /// For suggestions while typing: at least three words, at most three notes, best first.
    std::vector<KnowledgeSuggestionModel> search(const std::string& queryText);
    /// For a search that the user asked for: any number of words and results, and words of scripts without blanks
    /// between them.
    std::vector<KnowledgeSuggestionModel> find(const std::string& queryText, std::size_t limit);

private:
    using Models = std::vector<KnowledgeSuggestionModel>;
    Models matching(const std::string& queryText, std::size_t limit);
    /// Database queue from here on.
    Models byStatement(Database& index, const std::string& query, std::size_t limit);
    Models byRows(Database& index, const std::string& query, const std::vector<std::int64_t>& rows);
    Models byTrigrams(Database& index, const std::string& queryText, std::size_t limit);

    SecondBrainIndexer& indexer_;
    Random& random_;
    // Database queue.
    KnowledgeRanker ranker_;
    std::optional<Database> desk_;
};
} // namespace snipwren

template <>
struct std::hash<snipwren::KnowledgeSuggestionModel> {
    std::size_t operator()(const snipwren::KnowledgeSuggestionModel& model) const noexcept;
};
