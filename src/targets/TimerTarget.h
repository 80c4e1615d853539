#pragma once

#include "capture/CaptureTarget.h"
#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
/// Starts a countdown that ends in a notification: "25m tea". It counts from Return, also when it is set up later.
class TimerTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "timer";
    static constexpr CaptureTargetHint words{
        "COUNTDOWN TIMER", "Notifies when done · view pending in Settings → Scheduled", "25m focus", ""};

    struct Dependencies {
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        const Clock& clock;
        Log& log;
    };
    explicit TimerTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    std::optional<std::string> preview(const std::string& text) const override;
    CaptureFailureGuide failureGuide(std::string_view detail) const override;
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                           std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = word;
};
} // namespace snipwren
