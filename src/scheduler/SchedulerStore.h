#pragma once

#include <string>
#include <vector>

#include "scheduler/ScheduledItem.h"
#include "store/Database.h"

namespace snipwren {
/// What the scheduler remembers of one item beyond the item itself.
struct StoredItem {
    ScheduledItem item;
    /// For intervals: the deadline on the clock since boot, good for this run of the machine only.
    Duration bootDeadline{};
    std::string bootId;
    /// It was due, but no notification service took it; shown as soon as there is one.
    bool waitsForService = false;
    friend bool operator==(const StoredItem&, const StoredItem&) = default;
};

/// The scheduler's items in SQLite. Every change is on the disk when it returns, because the next thing may be a power
/// cut. One thread.
class SchedulerStore {
public:
    using Error = DatabaseError;
    /// `path` may be Database::inMemory.
    static Result<SchedulerStore, Error> open(const std::string& path);

    Result<void, Error> put(const StoredItem& stored);
    Result<void, Error> remove(const std::string& id);
    Result<std::vector<StoredItem>, Error> all();

private:
    explicit SchedulerStore(Database database) : database_(std::move(database)) {}
    Database database_;
};
} // namespace snipwren
