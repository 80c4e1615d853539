#pragma once

#include <string>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "platform/EventStore.h"

namespace snipwren {
/// Reminders and events as folders of iCalendar files, one item a file, which calendar programs and synchronisers share
/// (a "vdir"). The folders stand in the user's documents unless settings name others; only those of our own are created.
/// Thread safe.
class VdirEventStore final : public EventStore {
public:
    static constexpr const char* remindersSetting = "remindersFolder";
    static constexpr const char* calendarSetting = "calendarFolder";

    struct Dependencies {
        FileIO& files;
        Paths paths;
        const UserDefaults& defaults;
        const Calendar& calendar;
        Clock& clock;
    };
    explicit VdirEventStore(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

    /// False when the system does not let us into the folder.
    bool requestAccess(EventEntity entity, std::stop_token stop) override;
    /// None when the chosen folder is missing or not to be written.
    Result<std::optional<EventList>, EventStoreError> defaultList(EventEntity entity, std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<void, EventStoreError> remove(EventEntity entity, const std::string& listId, const std::string& uid,
                                         std::stop_token stop) override;
    bool ringsAlarms() const override { return false; }
    std::optional<std::string> revealPath(EventEntity entity) const override { return folder(entity); }

private:
    std::string folder(EventEntity entity) const;
    bool isChosen(EventEntity entity) const;
    static std::string itemPath(const std::string& listId, const std::string& uid);
    Result<std::string, EventStoreError> write(const EventList& list, const std::string& uid, const std::string& text);

    const Dependencies dependencies_;
};
} // namespace snipwren
