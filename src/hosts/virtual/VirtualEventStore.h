#pragma once

#include <mutex>
#include <utility>
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
        return itemsOf(reminders_);
    }
    std::vector<CalendarEvent> events() const {
        const std::lock_guard lock(mutex_);
        return itemsOf(events_);
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
    Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList&, const std::string& uid,
                                              std::stop_token) override {
        return keep(reminders_, reminder, uid);
    }
    Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList&, const std::string& uid,
                                              std::stop_token) override {
        return keep(events_, event, uid);
    }
    Result<void, EventStoreError> remove(EventEntity entity, const std::string&, const std::string& uid,
                                         std::stop_token) override {
        const std::lock_guard lock(mutex_);
        const auto isIt = [&](const auto& kept) { return kept.first == uid; };
        const auto removed =
            entity == EventEntity::reminder ? std::erase_if(reminders_, isIt) : std::erase_if(events_, isIt);
        if (removed == 0) return unexpected(EventStoreError::missing(entity));
        return {};
    }
    bool ringsAlarms() const override {
        const std::lock_guard lock(mutex_);
        return setup_.ringsAlarms;
    }
    std::optional<std::string> revealPath(EventEntity) const override { return std::nullopt; }

private:
    /// Each under its identifier, in the order of saving.
    template <class Item>
    using Kept = std::vector<std::pair<std::string, Item>>;

    template <class Item>
    static std::vector<Item> itemsOf(const Kept<Item>& kept) {
        std::vector<Item> items;
        for (const auto& [uid, item] : kept) items.push_back(item);
        return items;
    }
    template <class Item>
    Result<std::string, EventStoreError> keep(Kept<Item>& items, const Item& item, const std::string& uid) {
        const std::lock_guard lock(mutex_);
        if (!setup_.saveError.empty()) return unexpected(EventStoreError{setup_.saveError});
        for (const auto& [known, kept] : items)
            if (known == uid) return uid;
        items.emplace_back(uid, item);
        return uid;
    }

    mutable std::mutex mutex_;
    Setup setup_;
    Kept<Reminder> reminders_;
    Kept<CalendarEvent> events_;
};
} // namespace snipwren
