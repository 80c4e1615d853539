#include "store/DatabaseManager.h"

#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/FolderLock.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "store/RulesSchema.h"

namespace snipwren {
namespace {
constexpr const char* queryFault = "❌ SQLite Query Error: ";
constexpr std::size_t shownCharacters = 120;

std::string_view beginning(std::string_view text) {
    std::size_t end = 0;
    for (std::size_t count = 0; count < shownCharacters && end < text.size(); ++count) nextScalar(text, end);
    return text.substr(0, end);
}

DatabaseError notOpen() { return {21, "The database is not open."}; } // 21 is SQLite's code for wrong use.
} // namespace

DatabaseManager::DatabaseManager(const Dependencies& dependencies)
    : files_(dependencies.files),
      paths_(dependencies.paths),
      clock_(dependencies.clock),
      defaults_(dependencies.defaults),
      queue_(dependencies.queue),
      log_(dependencies.log),
      options_(dependencies.options) {}

void DatabaseManager::open() {
    queue_.sync([this] { openOnQueue(); });
}

bool DatabaseManager::isPersistent() const {
    return queue_.call([this] { return persistent_; });
}

double DatabaseManager::now() const { return secondsSince1970(clock_.now()); }

void DatabaseManager::openOnQueue() {
    if (paths_.applicationSupport.empty()) {
        log_.line("❌ SQLite Error: Application support directory not found.");
        return;
    }
    if (const auto made = files_.createFolders(paths_.applicationSupport, privateFolderMode); !made)
        log_.line("❌ SQLite Error: " + made.error().description);
    const std::string path = joinedPath(paths_.applicationSupport, fileName);
    log_.line("📁 SnipwrenRules.db Path: " + path);

    auto opened = openFile(path);
    Result<void, DatabaseError> ready;
    if (opened) {
        database_ = std::move(*opened);
        ready = bringUpToDate();
        // A full disk stops the seeding, but a file that has its protected applications serves as it is.
        persistent_ = ready || has("SELECT id FROM exclusion_list LIMIT 1;").value_or(false);
        if (persistent_) {
            told(ready, "❌ SQLite Error: The tables could not be brought up to date: ");
            return;
        }
        database_.reset();
    } else {
        ready = unexpected(opened.error());
    }
    log_.line("❌ SQLite Error: Failed to open SnipwrenRules.db. Falling back to in-memory database.");
    told(ready, "❌ SQLite Error: The reason was: ");
    Database::Options options = options_;
    options.fileSystem.clear();
    if (auto inMemory = Database::open(Database::inMemory, options)) {
        database_ = std::move(*inMemory);
        told(bringUpToDate(), "❌ SQLite Error: ");
    } else {
        told(unexpected(inMemory.error()), "❌ SQLite Error: ");
    }
}

Result<Database, DatabaseError> DatabaseManager::openFile(const std::string& path) {
    auto opened = Database::open(path, options_);
    if (opened || !opened.error().isDamaged()) return opened;
    // Two programs that find the damage at once must not put each other's new file aside.
    const FolderLock lock(paths_.applicationSupport);
    opened = Database::open(path, options_);
    if (opened || !opened.error().isDamaged()) return opened;
    std::string aside = path + ".damaged";
    for (int number = 2; files_.exists(aside); ++number) aside = path + ".damaged-" + std::to_string(number);
    if (const auto moved = files_.rename(path, aside); !moved) {
        log_.line("❌ SQLite Error: " + moved.error().description);
        return opened;
    }
    // What the journal holds belongs to the old file and would spoil a new one.
    for (const char* suffix : {"-wal", "-shm", "-journal"})
        if (files_.exists(path + suffix)) (void)files_.rename(path + suffix, aside + suffix);
    log_.line("❌ SQLite Error: SnipwrenRules.db was damaged. It was kept as \"" + aside
              + "\" and a new one was started.");
    return Database::open(path, options_);
}

Result<void, DatabaseError> DatabaseManager::bringUpToDate() {
    // What the user deletes is to be gone from the file, too.
    if (auto done = database_->execute("PRAGMA secure_delete = ON;"); !done) return done;
    return database_->transaction([this]() -> Result<void, DatabaseError> {
        for (const char* table : RulesSchema::tables())
            if (auto done = database_->execute(table); !done) return done;
        return seed();
    });
}

Result<bool, DatabaseError> DatabaseManager::has(const std::string& sql) {
    auto statement = database_->prepareOnce(sql);
    if (!statement) return unexpected(statement.error());
    return statement->step();
}

Result<void, DatabaseError> DatabaseManager::seed() {
    for (const auto& rule : RulesSchema::rules()) {
        const auto present = has("SELECT id FROM rules_config WHERE id = '" + std::string(rule.id) + "';");
        if (!present) return unexpected(present.error());
        if (*present) continue;
        auto done = attempt("INSERT INTO rules_config (id, name, pattern, category, description, severity, "
                            "is_enabled)\nVALUES (?, ?, ?, ?, ?, ?, 1);",
                            rule.id, rule.name, rule.pattern, rule.category, rule.description, rule.severity);
        if (!done) return done;
        log_.line("✅ Seeded Rule: " + std::string(rule.id));
    }
    // One that the user deleted comes back: password managers are always protected.
    for (const auto& exclusion : RulesSchema::exclusions()) {
        const auto present = has("SELECT id FROM exclusion_list WHERE id = '" + std::string(exclusion.id) + "';");
        if (!present) return unexpected(present.error());
        if (*present) continue;
        auto done = attempt("INSERT INTO exclusion_list (id, category, reasoning)\nVALUES (?, ?, ?);", exclusion.id,
                            "app", exclusion.reasoning);
        if (!done) return done;
    }
    for (const auto& identity : RulesSchema::identities()) {
        auto done = attempt("INSERT OR IGNORE INTO exclusion_identities (exclusion_id, kind, identity) "
                            "VALUES (?, ?, ?);",
                            identity.exclusionId, identity.kind, identity.identity);
        if (!done) return done;
    }
    return {};
}

Result<Statement, DatabaseError> DatabaseManager::prepare(std::string_view sql) {
    if (!database_) return unexpected(notOpen());
    return database_->prepare(sql);
}

Result<Statement, DatabaseError> DatabaseManager::prepareOnce(std::string_view sql) {
    if (!database_) return unexpected(notOpen());
    return database_->prepareOnce(sql);
}

bool DatabaseManager::told(const Result<void, DatabaseError>& done, std::string_view words) {
    if (!done) log_.line(std::string(words) + done.error().description);
    return done.has_value();
}

DatabaseManager::Row DatabaseManager::rowOf(Statement& statement) {
    Row row;
    for (int column = 0; column < statement.columnCount(); ++column)
        row.emplace(statement.columnName(column), statement.text(column));
    return row;
}

void DatabaseManager::nonQuery(const std::string& sql) {
    const auto done = database_ ? database_->execute(sql) : unexpected(notOpen());
    if (!done)
        log_.line("❌ SQLite NonQuery Error: " + done.error().description + " (sql: " + std::string(beginning(sql))
                  + ")");
}

DatabaseManager::Rows DatabaseManager::query(const std::string& sql) {
    return read(prepareOnce(sql), queryFault, rowOf);
}

void DatabaseManager::executeNonQuery(const std::string& sql) {
    queue_.sync([&] { nonQuery(sql); });
}

bool DatabaseManager::executeNonQueryWithParams(const std::string& sql, const std::vector<std::string>& arguments) {
    return queue_.call([&] {
        auto statement = prepare(sql);
        if (!statement) return told(unexpected(statement.error()), "❌ SQLite Error Prepare: ");
        for (std::size_t index = 0; index < arguments.size(); ++index)
            statement->bind(static_cast<int>(index + 1), arguments[index]);
        return told(statement->run(), "❌ SQLite NonQuery with Params Error: ");
    });
}

DatabaseManager::Rows DatabaseManager::executeQuery(const std::string& sql) {
    return queue_.call([&] { return query(sql); });
}

bool DatabaseManager::performRaw(const std::function<void(Database&)>& block) {
    return queue_.call([&] {
        if (!database_) return told(unexpected(notOpen()), queryFault);
        block(*database_);
        return true;
    });
}

DatabaseManager::Rows DatabaseManager::fetchRulesConfig() {
    return executeQuery("SELECT id, name, pattern, category, description, severity, is_enabled FROM rules_config;");
}

bool DatabaseManager::updateRuleEnabled(const std::string& id, bool isEnabled) {
    return executeNonQueryWithParams("UPDATE rules_config SET is_enabled = ? WHERE id = ?;",
                                     {isEnabled ? "1" : "0", id});
}

std::vector<std::string> DatabaseManager::fetchExclusionList() {
    return queue_.call([&] {
        return read(prepare("SELECT id FROM exclusion_list;"), queryFault, [](Statement& row) { return row.text(0); });
    });
}

DatabaseManager::Rows DatabaseManager::fetchExclusionDetails() {
    return executeQuery("SELECT id, category, reasoning FROM exclusion_list;");
}

bool DatabaseManager::addExclusion(const std::string& id, const std::string& category, const std::string& reasoning) {
    return executeNonQueryWithParams(
        "INSERT OR REPLACE INTO exclusion_list (id, category, reasoning)\nVALUES (?, ?, ?);",
        {id, category, reasoning});
}

bool DatabaseManager::deleteExclusion(const std::string& id) {
    return executeNonQueryWithParams("DELETE FROM exclusion_list WHERE id = ?;", {id});
}

std::vector<std::string> DatabaseManager::fetchExclusionIdentities() {
    return queue_.call([&] {
        return read(prepare("SELECT DISTINCT i.identity FROM exclusion_identities i JOIN exclusion_list e "
                            "ON e.id = i.exclusion_id WHERE e.category = 'app';"),
                    queryFault, [](Statement& row) { return row.text(0); });
    });
}
} // namespace snipwren
