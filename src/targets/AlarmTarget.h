#pragma once

#include <string_view>

#include "capture/CaptureTarget.h"
#include "parsing/NotificationScheduler.h"
#include "records/CaptureLanding.h"

namespace snipwren {
enum class AlarmTargetError { emptyInput, noDateTime, dateWithoutTime };
/// The sentence shown to the user as it stands.
std::string_view message(AlarmTargetError error);

/// Sets a notification at a clock time: "7:30am take meds".
class AlarmTarget final : public CaptureTarget {
public:
    struct Dependencies {
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        Clock& clock;
        CaptureLanding& landing;
        Log& log;
    };
    explicit AlarmTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = "alarm";
};
} // namespace snipwren
