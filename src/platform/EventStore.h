#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "base/Clock.h"
#include "base/Result.h"

namespace snipwren {
enum class EventEntity { reminder, event };

/// A list of reminders or a calendar.
struct EventList {
    std::string id;
    std::string title;
    friend bool operator==(const EventList&, const EventList&) = default;
};

struct Reminder {
    std::string title;
    /// To the minute.
    std::optional<TimePoint> due;
    std::optional<TimePoint> alarm;
    friend bool operator==(const Reminder&, const Reminder&) = default;
};

struct CalendarEvent {
    std::string title;
    TimePoint start;
    TimePoint end;
    friend bool operator==(const CalendarEvent&, const CalendarEvent&) = default;
};

struct EventStoreError {
    /// A full sentence for the user.
    std::string description;
    /// An item that was to be removed and is not there.
    static EventStoreError missing(EventEntity entity) {
        return {std::string("The ") + (entity == EventEntity::reminder ? "reminder" : "event")
                + " is not there any more. Nothing was removed; look for it in your calendar program."};
    }
};

/// The user's reminders and calendars. Every operation blocks for a bounded time, ends early when the token is stopped,
/// and may be called on any thread.
class EventStore {
public:
    virtual ~EventStore() = default;
    /// Asks the user where the system has such a question; false when access is refused.
    virtual bool requestAccess(EventEntity entity, std::stop_token stop) = 0;
    /// Where new items go; none when there is no list or no calendar that can be written.
    virtual Result<std::optional<EventList>, EventStoreError> defaultList(EventEntity entity, std::stop_token stop) = 0;
    /// Saved for good when this answers, under the identifier `uid`, a lower-case UUID; where the list has an item of that
    /// identifier already, it is that one, and stays as it is. The value is the store's identifier of the item, which is
    /// `uid` unless a server insists on its own.
    virtual Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList& list,
                                                      const std::string& uid, std::stop_token stop) = 0;
    virtual Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList& list,
                                                      const std::string& uid, std::stop_token stop) = 0;
    /// Removes a saved item; one that is not there any more is an error. `uid` is what save() answered.
    virtual Result<void, EventStoreError> remove(EventEntity entity, const std::string& listId, const std::string& uid,
                                                 std::stop_token stop) = 0;
    /// False for a store of plain files: someone else has to ring a reminder's alarm.
    virtual bool ringsAlarms() const = 0;
    /// What the user opens to see the items: a program or a folder. None for the system's usual program, empty when there
    /// is nothing to open.
    virtual std::optional<std::string> revealPath(EventEntity entity) const = 0;
};
} // namespace snipwren
