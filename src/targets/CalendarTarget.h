#pragma once

#include <string_view>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "capture/CaptureTarget.h"
#include "platform/EventStore.h"
#include "records/CaptureLanding.h"

namespace snipwren {
enum class CalendarTargetError { emptyInput, noDateTime, permissionDenied, noWritableCalendar };
/// The sentence shown to the user as it stands.
std::string_view message(CalendarTargetError error);

/// Adds an event of one hour to the default calendar: "standup tomorrow 2pm". A bare date means nine in the morning.
class CalendarTarget final : public CaptureTarget {
public:
    static constexpr Duration eventLength = std::chrono::seconds(3600);

    struct Dependencies {
        EventStore& store;
        const Calendar& calendar;
        Clock& clock;
        CaptureLanding& landing;
        Log& log;
    };
    explicit CalendarTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = "calendar";
};
} // namespace snipwren
