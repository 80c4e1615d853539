#pragma once

#include <string_view>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "capture/CaptureTarget.h"
#include "platform/EventStore.h"

namespace snipwren {
enum class CalendarTargetError { emptyInput, noDateTime, permissionDenied, noWritableCalendar };
/// The sentence shown to the user as it stands.
std::string_view message(CalendarTargetError error);

/// Adds an event of one hour to the default calendar: "standup tomorrow 2pm". A bare date means nine in the morning.
class CalendarTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "calendar";
    static constexpr CaptureTargetHint words{"CALENDAR EVENT", "Natural language date/time · 1-hour block",
                                             "standup tomorrow 2pm", ""};
    static constexpr Duration eventLength = std::chrono::seconds(3600);

    struct Dependencies {
        EventStore& store;
        const Calendar& calendar;
        const Clock& clock;
        Log& log;
    };
    explicit CalendarTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

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
