#pragma once

#include <string_view>

#include "capture/CaptureTarget.h"
#include "parsing/scheduling/NotificationScheduler.h"
#include "platform/EventStore.h"

namespace snipwren {
enum class RemindersTargetError { accessDenied = 1, noDefaultList = 2 };
/// The sentence shown to the user as it stands.
std::string_view message(RemindersTargetError error);

/// Adds a reminder to the default list: "pick up dry cleaning tomorrow 8am". A reminder with a clock time has an alarm;
/// where the store rings none, our own scheduler does.
class RemindersTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "reminders";
    static constexpr CaptureTargetHint words{"REMINDERS", "Optional due date — tomorrow 5pm works",
                                             "pick up dry cleaning tomorrow 8am", ""};

    struct Dependencies {
        EventStore& store;
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        const Clock& clock;
        Log& log;
    };
    explicit RemindersTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

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
