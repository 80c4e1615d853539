#pragma once

#include <mutex>
#include <vector>

#include "platform/EventStore.h"

namespace snipwren {
/// The reminders and the calendar of the virtual desktop, in memory. Thread safe.
class VirtualEventStore final : public EventStore {
public:
    /// What the virtual user allowed and has set up.
    struct Setup {
        bool grantsAccess = true;
        bool hasReminderList = true;
        bool hasWritableCalendar = true;
        bool ringsAlarms = true;
        /// Saving fails with this sentence when it is not empty.
        std::string saveError;
    };
    void setUp(const Setup& setup) {
        const std::lock_guard lock(mutex_);
        setup_ = setup;
    }
    std::vector<Reminder> reminders() const {
        const std::lock_guard lock(mutex_);
        return reminders_;
    }
    std::vector<CalendarEvent> events() const {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    bool requestAccess(EventEntity, std::stop_token) override {
        const std::lock_guard lock(mutex_);
        return setup_.grantsAccess;
    }
    Result<std::optional<EventList>, EventStoreError> defaultList(EventEntity entity, std::stop_token) override {
        const std::lock_guard lock(mutex_);
        const bool isReminder = entity == EventEntity::reminder;
        if (isReminder ? !setup_.hasReminderList : !setup_.hasWritableCalendar) return std::nullopt;
        return isReminder ? EventList{"reminders", "Reminders"} : EventList{"calendar", "Calendar"};
    }
    Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList&, std::stop_token) override {
        return keep(reminders_, reminder);
    }
    Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList&, std::stop_token) override {
        return keep(events_, event);
    }
    bool ringsAlarms() const override {
        const std::lock_guard lock(mutex_);
        return setup_.ringsAlarms;
    }
    std::optional<std::string> revealPath(EventEntity) const override { return std::nullopt; }

private:
    template <class Item>
    Result<std::string, EventStoreError> keep(std::vector<Item>& items, const Item& item) {
        const std::lock_guard lock(mutex_);
        if (!setup_.saveError.empty()) return unexpected(EventStoreError{setup_.saveError});
        items.push_back(item);
        return std::to_string(items.size());
    }

    mutable std::mutex mutex_;
    Setup setup_;
    std::vector<Reminder> reminders_;
    std::vector<CalendarEvent> events_;
};
} // namespace snipwren
