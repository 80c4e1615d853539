#include "targets/AlarmTarget.h"

#include "base/Text.h"
#include "parsing/CaptureDateParser.h"
#include "targets/TargetErrors.h"

namespace snipwren {
std::string_view message(AlarmTargetError error) {
    switch (error) {
    case AlarmTargetError::emptyInput: return "Alarm text is empty. Try: 7:30am take meds";
    case AlarmTargetError::noDateTime:
        return "Could not find a date or time. Try: 7:30am take meds or tomorrow 9am standup";
    case AlarmTargetError::dateWithoutTime: return "Alarm needs a specific time. Try: tomorrow 9am take meds";
    }
    return {};
}

Result<void, CaptureError> AlarmTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                             std::stop_token stop) {
    const auto failed = [](AlarmTargetError error) { return unexpected(captureError("AlarmTargetError", error)); };
    const std::string capture(trimmed(text));
    if (capture.empty()) return failed(AlarmTargetError::emptyInput);
    const auto parsed = CaptureDateParser::parseAlarm(capture, dependencies_.clock.now(), dependencies_.calendar);
    if (!parsed.date) return failed(AlarmTargetError::noDateTime);
    if (!parsed.hasTime) return failed(AlarmTargetError::dateWithoutTime);
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    const auto scheduled = dependencies_.scheduler.scheduleAlarm(*parsed.date, parsed.title);
    if (!scheduled) return unexpected(captureError(scheduled.error()));
    const std::string moment = CaptureDateParser::formatDateTime(*parsed.date, dependencies_.calendar);
    dependencies_.landing.announce({commandName_, capture, "Alarm set — " + moment, std::nullopt, "alarm", false});
    dependencies_.log.line("⏰ AlarmTarget: Scheduled alarm for " + moment + " — '" + parsed.title + "'");
    return {};
}
} // namespace snipwren
