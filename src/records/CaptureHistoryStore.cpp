#include "records/CaptureHistoryStore.h"

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Text.h"
#include "store/DatabaseManager.h"

namespace snipwren {
namespace {
std::string pruneStatement() {
    return "DELETE FROM capture_history WHERE id NOT IN (\n"
           "    SELECT id FROM capture_history ORDER BY created_at DESC LIMIT "
           + std::to_string(CaptureHistoryStore::maxEntries) + "\n);";
}
} // namespace

CaptureHistoryStore::CaptureHistoryStore(const Dependencies& dependencies)
    : database_(dependencies.database),
      clock_(dependencies.clock),
      notifications_(dependencies.notifications),
      log_(dependencies.log) {}

void CaptureHistoryStore::open() {
    database_.executeNonQuery("CREATE TABLE IF NOT EXISTS capture_history (\n"
                              "    id INTEGER PRIMARY KEY AUTOINCREMENT,\n"
                              "    target TEXT NOT NULL,\n"
                              "    text TEXT NOT NULL,\n"
                              "    success INTEGER NOT NULL DEFAULT 1,\n"
                              "    created_at REAL NOT NULL\n"
                              ");");
    database_.executeNonQuery(
        "CREATE INDEX IF NOT EXISTS idx_capture_history_created ON capture_history(created_at DESC);");
}

bool CaptureHistoryStore::record(std::string_view target, std::string_view text, bool success, TimePoint at) {
    const std::string_view kept = trimmed(text);
    if (kept.empty()) return true;
    bool isKept = false;
    database_.performRaw([&](Database& database) {
        const double moment = secondsSince1970(at);
        auto done = [&]() -> Result<void, DatabaseError> {
            auto known = database.prepare("SELECT 1 FROM capture_history WHERE created_at = ? AND target = ? "
                                          "AND text = ?;");
            if (!known) return unexpected(known.error());
            known->bindAll(moment, target, kept);
            const auto found = known->step();
            if (!found) return unexpected(found.error());
            if (*found) return {};
            return database.run("INSERT INTO capture_history (target, text, success, created_at) VALUES (?, ?, ?, ?);",
                                target, kept, success ? 1 : 0, moment);
        }();
        isKept = done.has_value();
        if (!done) log_.line("❌ CaptureHistoryStore: insert failed: " + done.error().description);
    });
    if (!isKept) return false;
    database_.executeNonQuery(pruneStatement());
    notifications_.post(historyChangedNotification);
    return database_.isPersistent();
}

template <class Bind, class Map>
auto CaptureHistoryStore::rowsOf(const char* sql, Bind bind, Map map) {
    std::vector<decltype(map(std::declval<Statement&>()))> rows;
    database_.performRaw([&](Database& database) {
        const auto failed = [this](const DatabaseError& error) {
            log_.line("❌ CaptureHistoryStore: read failed: " + error.description);
        };
        auto statement = database.prepare(sql);
        if (!statement) return failed(statement.error());
        bind(*statement);
        while (true) {
            const auto stepped = statement->step();
            if (!stepped) return failed(stepped.error());
            if (!*stepped) return;
            rows.push_back(map(*statement));
        }
    });
    return rows;
}

std::vector<CaptureHistoryEntry> CaptureHistoryStore::recentEntries(std::string_view matching, std::int32_t limit) {
    const auto entryOf = [](Statement& row) {
        return CaptureHistoryEntry{.id = row.integer(0),
                                   .target = row.text(1),
                                   .text = row.text(2),
                                   .success = row.integer(3) == 1,
                                   .createdAt = fromSecondsSince1970(row.real(4))};
    };
    const std::string_view query = trimmed(matching);
    if (query.empty())
        return rowsOf(
            "SELECT id, target, text, success, created_at FROM capture_history ORDER BY created_at DESC LIMIT ?;",
            [&](Statement& statement) { statement.bindAll(limit); }, entryOf);
    const std::string pattern = "%" + std::string(query) + "%";
    return rowsOf(
        "SELECT id, target, text, success, created_at FROM capture_history WHERE text LIKE ? OR target LIKE ? "
        "ORDER BY created_at DESC LIMIT ?;",
        [&](Statement& statement) { statement.bindAll(pattern, pattern, limit); }, entryOf);
}

void CaptureHistoryStore::clearAll() {
    database_.executeNonQuery("DELETE FROM capture_history;");
    notifications_.postNow(historyChangedNotification);
}

CaptureStats CaptureHistoryStore::stats(TimePoint now, const Calendar& calendar) {
    auto records = rowsOf(
        "SELECT target, created_at FROM capture_history WHERE success = 1 ORDER BY created_at DESC;", [](Statement&) {},
        [](Statement& row) {
            return CaptureActivityRecord{.target = row.text(0), .createdAt = fromSecondsSince1970(row.real(1))};
        });
    return CaptureInsights::calculate(std::move(records), now, calendar);
}
} // namespace snipwren
