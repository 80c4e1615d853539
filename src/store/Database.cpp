#include "store/Database.h"

#include <cerrno>
#include <unordered_map>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/FileIO.h"

namespace snipwren {
namespace {
/// Kept statements; beyond it the idle ones are let go, so texts that never come again cannot fill the memory.
constexpr std::size_t maxKeptStatements = 64;

DatabaseError errorOf(sqlite3* handle, int code) {
    return {code & 0xFF, handle ? sqlite3_errmsg(handle) : sqlite3_errstr(code)};
}

/// SQLite would create the file readable for everybody, and gives its companion files the same mode. An existing file
/// is changed by name: closing a descriptor of it would drop the locks of other connections in this program. False when
/// there is no such file yet and none could be made.
bool makePrivate(const std::string& path) {
    int fd = -1;
    do fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, privateFileMode);
    while (fd < 0 && errno == EINTR);
    if (fd >= 0) {
        ::close(fd);
        return true;
    }
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return false;
    if (S_ISREG(info.st_mode)) ::chmod(path.c_str(), privateFileMode);
    return true;
}
} // namespace

bool DatabaseError::isBusy() const { return code == SQLITE_BUSY || code == SQLITE_LOCKED; }
bool DatabaseError::isDamaged() const { return code == SQLITE_NOTADB || code == SQLITE_CORRUPT; }

/// The connection and its idle statements.
struct Statement::Home {
    ~Home() {
        for (const auto& [sql, statement] : idle) sqlite3_finalize(statement);
        sqlite3_close_v2(handle);
    }
    /// SQLite's busy handler: how long to wait for a lock of another program, asked again and again.
    static int waitForLock(void* self, int attempt) { return static_cast<Home*>(self)->waits(attempt) ? 1 : 0; }
    bool waits(int attempt) {
        const auto now = std::chrono::steady_clock::now();
        if (attempt == 0) waitingSince = now;
        // One wait for a program that holds its lock for good is enough: those of many statements would add up to minutes.
        const bool gaveUpLately = gaveUpAt && now - *gaveUpAt < Database::lockedAssumedFor;
        if (gaveUpLately || now - waitingSince >= patience) {
            if (!gaveUpLately) gaveUpAt = now;
            return false;
        }
        sqlite3_sleep(std::min(1 + attempt, 20));
        return true;
    }

    sqlite3* handle = nullptr;
    std::unordered_map<std::string, sqlite3_stmt*> idle;
    std::chrono::milliseconds patience{0};
    std::chrono::steady_clock::time_point waitingSince;
    std::optional<std::chrono::steady_clock::time_point> gaveUpAt;
};

Statement::Statement(std::shared_ptr<Home> home, sqlite3_stmt* statement, std::string key)
    : home_(std::move(home)),
      statement_(statement),
      key_(std::move(key)) {}

Statement::Statement(Statement&& other) noexcept
    : home_(std::move(other.home_)),
      statement_(std::exchange(other.statement_, nullptr)),
      key_(std::move(other.key_)),
      bindingCode_(other.bindingCode_) {}

Statement& Statement::operator=(Statement&& other) noexcept {
    if (this == &other) return *this;
    giveBack();
    home_ = std::move(other.home_);
    statement_ = std::exchange(other.statement_, nullptr);
    key_ = std::move(other.key_);
    bindingCode_ = other.bindingCode_;
    return *this;
}

Statement::~Statement() { giveBack(); }

void Statement::giveBack() {
    if (!statement_) return;
    sqlite3_stmt* const statement = std::exchange(statement_, nullptr);
    if (!key_.empty()) {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement); // Captured texts do not stay in memory longer than needed.
        if (home_->idle.size() >= maxKeptStatements) {
            sqlite3_finalize(home_->idle.begin()->second);
            home_->idle.erase(home_->idle.begin());
        }
        if (home_->idle.emplace(std::move(key_), statement).second) return;
    }
    sqlite3_finalize(statement);
}

void Statement::noteBinding(int code) {
    if (bindingCode_ == SQLITE_OK) bindingCode_ = code;
}

void Statement::bind(int index, std::string_view text) {
    // A null pointer would bind NULL instead of empty text.
    noteBinding(sqlite3_bind_text64(statement_, index, text.data() ? text.data() : "", text.size(), SQLITE_TRANSIENT,
                                    SQLITE_UTF8));
}
void Statement::bind(int index, double value) { noteBinding(sqlite3_bind_double(statement_, index, value)); }
void Statement::bind(int index, std::nullopt_t) { noteBinding(sqlite3_bind_null(statement_, index)); }
void Statement::bindInteger(int index, std::int64_t value) {
    noteBinding(sqlite3_bind_int64(statement_, index, value));
}
void Statement::bindBlob(int index, std::string_view bytes) {
    noteBinding(
        sqlite3_bind_blob64(statement_, index, bytes.data() ? bytes.data() : "", bytes.size(), SQLITE_TRANSIENT));
}

Result<bool, DatabaseError> Statement::step() {
    if (bindingCode_ != SQLITE_OK) return unexpected(DatabaseError{bindingCode_ & 0xFF, sqlite3_errstr(bindingCode_)});
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    return unexpected(errorOf(home_->handle, code));
}

Result<void, DatabaseError> Statement::run() {
    while (true) {
        const auto stepped = step();
        if (stepped && *stepped) continue;
        reset();
        if (!stepped) return unexpected(stepped.error());
        return {};
    }
}

void Statement::reset() {
    sqlite3_reset(statement_);
    bindingCode_ = SQLITE_OK;
}

int Statement::columnCount() const { return sqlite3_column_count(statement_); }
std::string Statement::columnName(int column) const {
    const char* name = sqlite3_column_name(statement_, column);
    return name ? name : "";
}
bool Statement::isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

std::string Statement::text(int column) const {
    // The text first: the conversion to text decides how many bytes there are.
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
}

std::optional<std::string> Statement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(text(column));
}
std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(statement_, column); }
double Statement::real(int column) const { return sqlite3_column_double(statement_, column); }

std::string Statement::blob(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
}

Result<Database, DatabaseError> Database::open(const std::string& path, const Options& options) {
    if (path != inMemory && !makePrivate(path)) {
        const int fault = errno;
        return unexpected(DatabaseError{SQLITE_CANTOPEN, FileError::from("create", path, fault).description});
    }
    auto home = std::make_shared<Statement::Home>();
    const int code =
        sqlite3_open_v2(path.c_str(), &home->handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        options.fileSystem.empty() ? nullptr : options.fileSystem.c_str());
    if (code != SQLITE_OK) return unexpected(errorOf(home->handle, code));
    Database database(std::move(home));
    if (auto configured = database.configure(options); !configured) return unexpected(configured.error());
    return database;
}

Result<void, DatabaseError> Database::configure(const Options& options) {
    home_->patience = options.busyTimeout;
    sqlite3_busy_handler(handle(), &Statement::Home::waitForLock, home_.get());
    // A view or trigger planted in the file must not reach functions with side effects.
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    if (auto done = execute(options.foreignKeys ? "PRAGMA foreign_keys = ON;" : "PRAGMA foreign_keys = OFF;"); !done)
        return done;
    // The change of mode does not always wait for other programs. Staying in the file's present mode is safe, too.
    for (int attempt = 0;; ++attempt) {
        const auto done =
            execute(options.writeAheadLog ? "PRAGMA journal_mode = WAL;" : "PRAGMA journal_mode = DELETE;");
        if (!done && !done.error().isBusy()) return done;
        if (done || !home_->waits(attempt)) break;
    }
    if (auto done = execute(options.durableCommits ? "PRAGMA synchronous = FULL;" : "PRAGMA synchronous = NORMAL;");
        !done)
        return done;
    // SQLite opens a file that cannot be written silently for reading.
    auto writable = execute("BEGIN IMMEDIATE; ROLLBACK;");
    if (!writable && !writable.error().isBusy()) return writable;
    return {};
}

Result<void, DatabaseError> Database::execute(const std::string& sql) {
    const int code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return unexpected(errorOf(handle(), code));
    return {};
}

Result<Statement, DatabaseError> Database::prepare(std::string_view sql) {
    std::string key(sql);
    if (const auto found = home_->idle.find(key); found != home_->idle.end()) {
        sqlite3_stmt* const statement = found->second;
        home_->idle.erase(found);
        return Statement(home_, statement, std::move(key));
    }
    auto prepared = prepareOnce(sql);
    if (prepared) prepared->key_ = std::move(key);
    return prepared;
}

Result<Statement, DatabaseError> Database::prepareOnce(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(handle(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    if (code != SQLITE_OK) return unexpected(errorOf(handle(), code));
    if (!statement) return unexpected(DatabaseError{SQLITE_MISUSE, "The statement is empty."});
    return Statement(home_, statement, {});
}

std::int64_t Database::lastInsertRowId() const { return sqlite3_last_insert_rowid(handle()); }
std::int64_t Database::changes() const { return sqlite3_changes64(handle()); }
std::string Database::message() const { return sqlite3_errmsg(handle()); }
sqlite3* Database::handle() const { return home_->handle; }
} // namespace snipwren
