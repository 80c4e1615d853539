#pragma once

#include <string_view>

#include "capture/CaptureTarget.h"
#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
enum class AlarmTargetError { emptyInput, noDateTime, dateWithoutTime };
/// The sentence shown to the user as it stands.
std::string_view message(AlarmTargetError error);

/// Sets a notification at a clock time: "7:30am take meds".
class AlarmTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "alarm";
    static constexpr CaptureTargetHint words{"ONE-SHOT ALARM", "macOS notification at set time · not Clock app",
                                             "7:30am take meds", ""};

    struct Dependencies {
        NotificationScheduler& scheduler;
        const Calendar& calendar;
        const Clock& clock;
        Log& log;
    };
    explicit AlarmTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

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
