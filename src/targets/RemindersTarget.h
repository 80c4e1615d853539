#pragma once

#include <string_view>

#include "capture/CaptureTarget.h"
#include "parsing/NotificationScheduler.h"
#include "platform/EventStore.h"
#include "records/CaptureLanding.h"

namespace snipwren {
enum class RemindersTargetError { accessDenied = 1, noDefaultList = 2 };
/// The sentence shown to the user as it stands.
std::string_view message(RemindersTargetError error);

/// Adds a reminder to the default list: "pick up dry cleaning tomorrow 8am". A reminder with a clock time has an alarm;
/// where the store rings none, our own scheduler does.
class RemindersTarget final : public CaptureTarget {
public:
    struct Dependencies {
        EventStore& store;
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        Clock& clock;
        CaptureLanding& landing;
        Log& log;
    };
    explicit RemindersTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = "reminders";
};
} // namespace snipwren
