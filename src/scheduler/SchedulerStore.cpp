#include "scheduler/SchedulerStore.h"

namespace snipwren {
namespace {
constexpr const char* schema = R"(
CREATE TABLE IF NOT EXISTS scheduled (
    id TEXT PRIMARY KEY NOT NULL,
    fire_at INTEGER NOT NULL,
    boot_deadline INTEGER NOT NULL,
    boot_id TEXT NOT NULL,
    waits_for_service INTEGER NOT NULL,
    item TEXT NOT NULL
) WITHOUT ROWID;
PRAGMA user_version = 1;
)";
} // namespace

Result<SchedulerStore, DatabaseError> SchedulerStore::open(const std::string& path) {
    Database::Options options;
    options.durableCommits = true;
    auto database = Database::open(path, options);
    if (!database) return unexpected(database.error());
    if (const auto made = database->execute(schema); !made) return unexpected(made.error());
    return SchedulerStore(std::move(*database));
}

Result<void, DatabaseError> SchedulerStore::put(const StoredItem& stored) {
    auto statement = database_.prepare("INSERT OR REPLACE INTO scheduled VALUES (?, ?, ?, ?, ?, ?)");
    if (!statement) return unexpected(statement.error());
    statement->bindAll(stored.item.id, stored.item.fireAt.time_since_epoch().count(), stored.bootDeadline.count(),
                       stored.bootId, stored.waitsForService ? 1 : 0, ScheduledItemCodec::encode(stored.item));
    return statement->run();
}

Result<void, DatabaseError> SchedulerStore::remove(const std::string& id) {
    return database_.run("DELETE FROM scheduled WHERE id = ?", id);
}

Result<std::vector<StoredItem>, DatabaseError> SchedulerStore::all() {
    auto statement = database_.prepare(
        "SELECT fire_at, boot_deadline, boot_id, waits_for_service, item FROM scheduled ORDER BY fire_at");
    if (!statement) return unexpected(statement.error());
    auto rows = statement->rows([](const Statement& row) -> std::optional<StoredItem> {
        auto item = ScheduledItemCodec::decode(row.text(4));
        if (!item) return std::nullopt;
        item->fireAt = TimePoint(Duration(row.integer(0)));
        return StoredItem{std::move(*item), Duration(row.integer(1)), row.text(2), row.integer(3) != 0};
    });
    if (!rows) return unexpected(rows.error());
    std::vector<StoredItem> items;
    for (auto& row : *rows)
        if (row) items.push_back(std::move(*row));
    return items;
}
} // namespace snipwren
