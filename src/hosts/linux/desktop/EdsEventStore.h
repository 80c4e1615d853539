#pragma once

#include <memory>
#include <string>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "platform/EventStore.h"

namespace snipwren {
/// The default task list and calendar of Evolution Data Server, through our helper program `snipwren-eds`, which is
/// killed when it takes too long, so that a hanging service cannot hang us. Thread safe.
class EdsEventStore final : public EventStore {
public:
    static constexpr std::chrono::milliseconds defaultLimit{10'000};

    struct Dependencies {
        const Calendar& calendar;
        Clock& clock;
        /// The helper; empty: beside our own program, then on the PATH.
        std::string helperProgram;
        std::chrono::milliseconds limit = defaultLimit;
    };
    explicit EdsEventStore(Dependencies dependencies);
    ~EdsEventStore() override;

    /// True when the session bus has the service and the helper is installed. The service is not started by asking.
    bool isAvailable();

    bool requestAccess(EventEntity entity, std::stop_token stop) override;
    /// None when there is no default list or it cannot be written.
    Result<std::optional<EventList>, EventStoreError> defaultList(EventEntity entity, std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const Reminder& reminder, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<std::string, EventStoreError> save(const CalendarEvent& event, const EventList& list, const std::string& uid,
                                              std::stop_token stop) override;
    Result<void, EventStoreError> remove(EventEntity entity, const std::string& listId, const std::string& uid,
                                         std::stop_token stop) override;
    /// When the desktop's own alarm program runs.
    bool ringsAlarms() const override;
    /// Which program shows them is the desktop's choice.
    std::optional<std::string> revealPath(EventEntity) const override { return ""; }

private:
    Result<std::string, EventStoreError> add(EventEntity entity, const std::string& listId, const std::string& uid,
                                             const std::string& text, std::stop_token stop);
    std::optional<std::string> helper() const;

    const Dependencies dependencies_;
};
} // namespace snipwren
