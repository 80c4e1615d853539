#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/Result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace snipwren {
/// What SQLite refused: its primary result code for decisions, and its own message.
struct DatabaseError {
    int code = 0;
    std::string description;

    bool isBusy() const;
    /// The file is no database, or parts of it cannot be read.
    bool isDamaged() const;
};

/// One prepared statement, borrowed from its Database, which it must not outlive; goes back reset when destroyed.
/// Parameters count from 1, columns from 0. Text and blobs are copied when bound. A parameter that cannot be bound is
/// reported by the next step.
class Statement {
public:
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    ~Statement();

    void bind(int index, std::string_view text);
    void bind(int index, const std::string& text) { bind(index, std::string_view(text)); }
    void bind(int index, const char* text) { bind(index, std::string_view(text)); }
    void bind(int index, std::integral auto value) { bindInteger(index, static_cast<std::int64_t>(value)); }
    void bind(int index, double value);
    void bind(int index, std::nullopt_t);
    template <class T>
    void bind(int index, const std::optional<T>& value) {
        value ? bind(index, *value) : bind(index, std::nullopt);
    }
    void bindBlob(int index, std::string_view bytes);
    /// Parameters 1, 2, ... in order.
    template <class... Values>
    void bindAll(const Values&... values) {
        [[maybe_unused]] int index = 0;
        (bind(++index, values), ...);
    }

    /// True when a row is there to be read, false when the statement is done.
    Result<bool, DatabaseError> step();
    /// Steps to the end and resets, so that the statement can be bound and run again.
    Result<void, DatabaseError> run();
    void reset();
    /// What `map` makes of every row; all or an error.
    template <class Map>
    auto rows(Map map) -> Result<std::vector<std::decay_t<decltype(map(*this))>>, DatabaseError> {
        std::vector<std::decay_t<decltype(map(*this))>> all;
        while (true) {
            const auto stepped = step();
            if (!stepped) return unexpected(stepped.error());
            if (!*stepped) return all;
            all.push_back(map(*this));
        }
    }

    int columnCount() const;
    std::string columnName(int column) const;
    bool isNull(int column) const;
    /// NULL reads as empty text; numbers as SQLite writes them.
    std::string text(int column) const;
    std::optional<std::string> optionalText(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    std::string blob(int column) const;

private:
    friend class Database;
    struct Home;
    Statement(std::shared_ptr<Home> home, sqlite3_stmt* statement, std::string key);
    void bindInteger(int index, std::int64_t value);
    void noteBinding(int code);
    void giveBack();

    std::shared_ptr<Home> home_;
    sqlite3_stmt* statement_ = nullptr;
    std::string key_; // Empty for a statement that is not kept.
    int bindingCode_ = 0;
};

/// One connection to one SQLite file; the only code that calls SQLite. Compiled statements are kept and used again.
/// Not thread safe: it belongs to its owner's serial queue. Several programs may have the same file open: writers wait
/// for each other up to the busy timeout, readers never wait.
class Database {
public:
    static constexpr const char* inMemory = ":memory:";
    /// After a wait that was in vain the next statements do not wait for so long.
    static constexpr std::chrono::seconds lockedAssumedFor{5};
    struct Options {
        /// How long one statement waits for a lock of another program.
        std::chrono::milliseconds busyTimeout{2000};
        bool foreignKeys = true;
        /// Wait for the disk at every commit. Without it a killed program loses nothing either; a power cut may cost the
        /// last commits, never the file.
        bool durableCommits = false;
        /// Off for a file that is replaced as a whole: a log beside it would outlive it.
        bool writeAheadLog = true;
        /// Name of a registered SQLite file system; empty for the system's own. The tests hand in one that fails.
        std::string fileSystem;
    };

    /// Opens or creates the file, owner-only, for reading and writing. Its folder must exist. A file that cannot be
    /// written or is no database is an error; what to do then is the owner's decision.
    static Result<Database, DatabaseError> open(const std::string& path, const Options& options);
    static Result<Database, DatabaseError> open(const std::string& path) { return open(path, Options()); }
    Database(Database&&) noexcept = default;
    Database& operator=(Database&&) noexcept = default;

    /// Runs one or more statements without parameters.
    Result<void, DatabaseError> execute(const std::string& sql);
    /// A kept statement: compiled at the first call with this text.
    Result<Statement, DatabaseError> prepare(std::string_view sql);
    /// For a text that is unlikely to come again.
    Result<Statement, DatabaseError> prepareOnce(std::string_view sql);
    /// Prepares, binds the values in order and runs to the end.
    template <class... Values>
    Result<void, DatabaseError> run(std::string_view sql, const Values&... values) {
        auto statement = prepare(sql);
        if (!statement) return unexpected(statement.error());
        statement->bindAll(values...);
        return statement->run();
    }
    /// Runs `work` (which answers a Result<void, DatabaseError>) in a write transaction: all of it happens or nothing.
    template <class Work>
    Result<void, DatabaseError> transaction(Work work) {
        if (auto begun = execute("BEGIN IMMEDIATE;"); !begun) return begun;
        Result<void, DatabaseError> done = work();
        if (done) done = execute("COMMIT;");
        if (!done) (void)execute("ROLLBACK;"); // Some faults have already rolled back; then there is nothing to undo.
        return done;
    }

    std::int64_t lastInsertRowId() const;
    /// Rows that the last INSERT, UPDATE or DELETE touched.
    std::int64_t changes() const;
    /// SQLite's message for the most recent fault.
    std::string message() const;
    /// For what this class does not offer, such as registering functions.
    sqlite3* handle() const;

private:
    explicit Database(std::shared_ptr<Statement::Home> home) : home_(std::move(home)) {}
    Result<void, DatabaseError> configure(const Options& options);
    std::shared_ptr<Statement::Home> home_;
};
} // namespace snipwren
