#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/CaptureInsights.h"

namespace snipwren {
class DatabaseManager;
class Log;
class NotificationCenter;

struct CaptureHistoryEntry {
    std::int64_t id = 0;
    std::string target;
    std::string text;
    bool success = false;
    TimePoint createdAt;
    friend bool operator==(const CaptureHistoryEntry&, const CaptureHistoryEntry&) = default;
};

/// The newest 2,000 captures, delivered or not, in the rules database and on its queue. Faults are logged and never
/// reach the caller. Thread safe.
class CaptureHistoryStore {
public:
    /// Posted without payload.
    static constexpr const char* historyChangedNotification = "CaptureHistoryChanged";
    static constexpr int maxEntries = 2000;

    struct Dependencies {
        DatabaseManager& database;
        const Clock& clock;
        NotificationCenter& notifications;
        Log& log;
    };
    explicit CaptureHistoryStore(const Dependencies& dependencies);

    /// Creates the table; the database must be open.
    void open();
    /// Blank text leaves no trace. The same capture (target, text and moment) is kept once. False when the database did not
    /// take it for good.
    bool record(std::string_view target, std::string_view text, bool success, TimePoint at);
    bool record(std::string_view target, std::string_view text, bool success) {
        return record(target, text, success, clock_.now());
    }
    /// Newest first. `matching` is searched in text and target, "%" and "_" are wildcards; blank finds everything.
    std::vector<CaptureHistoryEntry> recentEntries(std::string_view matching, std::int32_t limit = 200);
    /// On the main queue: the observers are told before it returns.
    void clearAll();
    /// Of the delivered captures only.
    CaptureStats stats(TimePoint now, const Calendar& calendar);

private:
    /// What was read so far when a fault ends the reading.
    template <class Bind, class Map>
    auto rowsOf(const char* sql, Bind bind, Map map);

    DatabaseManager& database_;
    const Clock& clock_;
    NotificationCenter& notifications_;
    Log& log_;
};
} // namespace snipwren
