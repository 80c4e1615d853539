#pragma once

#include "capture/CaptureTarget.h"
#include "parsing/NotificationScheduler.h"
#include "records/CaptureLanding.h"

namespace snipwren {
/// Starts a countdown that ends in a notification: "25m tea".
class TimerTarget final : public CaptureTarget {
public:
    struct Dependencies {
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        CaptureLanding& landing;
        Log& log;
    };
    explicit TimerTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = "timer";
};
} // namespace snipwren
