#include "context/graph/KnowledgeStore.h"

#include <sqlite3.h>

#include "context/notes/NoteText.h"

namespace snipwren {
namespace {
constexpr const char* createFullText =
    "CREATE VIRTUAL TABLE IF NOT EXISTS knowledge_fts USING fts5(\n    title, content, path, source, "
    "tokenize='porter unicode61'\n);";
// Without content of its own: the rows are those of knowledge_fts, by their row numbers.
constexpr const char* createTrigrams =
    "CREATE VIRTUAL TABLE IF NOT EXISTS knowledge_trigram USING fts5(title, content, content='', tokenize='trigram');"
    "CREATE TABLE IF NOT EXISTS knowledge_info(key TEXT PRIMARY KEY, value REAL);";

// A larger part of the index is kept in memory before it is written: fewer parts to merge afterwards.
constexpr const char* bulkSettings =
    "INSERT INTO knowledge_fts(knowledge_fts, rank) VALUES('hashsize', 33554432);"
    "INSERT INTO knowledge_trigram(knowledge_trigram, rank) VALUES('hashsize', 8388608);";
constexpr const char* normalSettings =
    "INSERT INTO knowledge_fts(knowledge_fts, rank) VALUES('hashsize', 1048576);"
    "INSERT INTO knowledge_trigram(knowledge_trigram, rank) VALUES('hashsize', 1048576);";
} // namespace

Result<KnowledgeStore, KnowledgeStore::OpenError> KnowledgeStore::open(const std::string& path) {
    Database::Options options;
    options.writeAheadLog = false;
    auto database = Database::open(path, options);
    if (!database) return unexpected(OpenError{OpenError::Stage::opening, database.error()});
    KnowledgeStore store(std::move(*database), path);
    if (auto made = store.createTables(); !made)
        return unexpected(
            OpenError{made.error().isDamaged() ? OpenError::Stage::opening : OpenError::Stage::tables, made.error()});
    return store;
}

KnowledgeStore::Done KnowledgeStore::createTables() {
    if (auto made = database_.execute(createFullText); !made) return made;
    return database_.execute(createTrigrams);
}

KnowledgeStore::Done KnowledgeStore::beginLoad() {
    // The whole file is flushed before it is used, so the single transaction needs no flushing of its own.
    if (auto set = database_.execute("PRAGMA synchronous = OFF; PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE;");
        !set)
        return set;
    return database_.execute(bulkSettings);
}

KnowledgeStore::Done KnowledgeStore::finishLoad(TimePoint builtAt) {
    if (auto noted = database_.run("INSERT OR REPLACE INTO knowledge_info(key, value) VALUES('builtAt', ?);",
                                   secondsSince1970(builtAt));
        !noted)
        return noted;
    if (auto set = database_.execute(normalSettings); !set) return set;
    return database_.execute("COMMIT; PRAGMA synchronous = NORMAL; PRAGMA locking_mode = NORMAL;");
}

KnowledgeStore::Done KnowledgeStore::insert(const KnowledgeDocument& document) {
    auto inserted = database_.run("INSERT INTO knowledge_fts (title, content, path, source) VALUES (?, ?, ?, ?);",
                                  document.title, document.content, document.path, document.source);
    if (!inserted || !(NoteText::hasUnspacedScript(document.content) || NoteText::hasUnspacedScript(document.title)))
        return inserted;
    return database_.run("INSERT INTO knowledge_trigram (rowid, title, content) VALUES (?, ?, ?);",
                         database_.lastInsertRowId(), document.title, document.content);
}

Result<std::int64_t, DatabaseError> KnowledgeStore::count() {
    auto statement = database_.prepare("SELECT COUNT(*) FROM knowledge_fts;");
    if (!statement) return unexpected(statement.error());
    const auto row = statement->step();
    if (!row) return unexpected(row.error());
    return *row ? statement->integer(0) : 0;
}

std::optional<TimePoint> KnowledgeStore::builtAt() {
    auto statement = database_.prepare("SELECT value FROM knowledge_info WHERE key = 'builtAt';");
    if (!statement) return std::nullopt;
    const auto row = statement->step();
    if (!row || !*row) return std::nullopt;
    return fromSecondsSince1970(statement->real(0));
}

bool KnowledgeStore::hasMoved() {
    int moved = 0;
    return sqlite3_file_control(database_.handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0;
}

KnowledgeStore::Done KnowledgeStore::lockOut() { return database_.execute("BEGIN EXCLUSIVE;"); }
} // namespace snipwren
