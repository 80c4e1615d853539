#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "store/Database.h"

namespace snipwren {
/// One document of the index.
struct KnowledgeDocument {
    std::string title;
    std::string content;
    std::string path;
    /// Name of the indexed folder.
    std::string source;
};

/// The index in one SQLite file: the documented full-text table, a second one with a trigram tokenizer for the documents
/// in scripts without blanks between words, and when it was built. Not thread safe.
/// A rebuild fills a new file, which then takes the place of the old one at once: searches never see half an index, and
/// emptying a large full-text table would cost as much as filling it.
class KnowledgeStore {
public:
    using Done = Result<void, DatabaseError>;

    /// Creates what is missing. "tables" failures are told apart from those of opening by `stage`.
    struct OpenError {
        enum class Stage { opening, tables };
        Stage stage = Stage::opening;
        DatabaseError cause;
    };
    static Result<KnowledgeStore, OpenError> open(const std::string& path);
    KnowledgeStore(KnowledgeStore&&) noexcept = default;
    KnowledgeStore& operator=(KnowledgeStore&&) noexcept = default;

    /// Begins a bulk load into a file that nobody else knows; end it with finishLoad.
    Done beginLoad();
    Done finishLoad(TimePoint builtAt);

    Done insert(const KnowledgeDocument& document);
    Result<std::int64_t, DatabaseError> count();
    std::optional<TimePoint> builtAt();

    /// True when another program has put a new file in this one's place since it was opened.
    bool hasMoved();
    /// Keeps other programs from writing to the file, after undoing what a killed one left half-done.
    Done lockOut();

    Database& database() { return database_; }
    const std::string& path() const { return path_; }

private:
    KnowledgeStore(Database database, std::string path) : database_(std::move(database)), path_(std::move(path)) {}
    Done createTables();

    Database database_;
    std::string path_;
};
} // namespace snipwren
