#pragma once

#include "base/UserDefaults.h"
#include "hosts/linux/desktop/EdsEventStore.h"
#include "hosts/portable/VdirEventStore.h"
#include "platform/EventStore.h"

namespace snipwren {
/// The store that a Linux user has: the desktop's calendar service, or folders of iCalendar files. The setting
/// `eventStore` is "auto", "eds" or "vdir"; auto takes the service when it is there and no folder was chosen.
class DesktopEventStore final : public EventStore {
public:
    static constexpr const char* storeSetting = "eventStore";

    DesktopEventStore(EventStore& folders, EdsEventStore& service, const UserDefaults& defaults)
        : folders_(folders),
          service_(service),
          defaults_(defaults) {}

    bool requestAccess(EventEntity entity, std::stop_token stop) override;
    Result<std::optional<EventList>, EventStoreError> defaultList(EventEntity entity, std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<void, EventStoreError> remove(EventEntity entity, const std::string& listId, const std::string& uid,
                                         std::stop_token stop) override;
    bool ringsAlarms() const override;
    std::optional<std::string> revealPath(EventEntity entity) const override;

private:
    bool usesService(EventEntity entity) const;
    EventStore& chosen(EventEntity entity) const;
    EventStore& storeOf(const std::string& listId) const;

    EventStore& folders_;
    EdsEventStore& service_;
    const UserDefaults& defaults_;
};
} // namespace snipwren
