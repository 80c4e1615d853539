#include "targets/AlarmTarget.h"

#include "base/Text.h"
#include "parsing/dates/CaptureDateParser.h"
#include "targets/PreviewText.h"
#include "targets/ScheduledCapture.h"
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

std::optional<std::string> AlarmTarget::preview(const std::string& text) const {
    constexpr std::string_view timerAdvice = "Read as a clock time. For a countdown use //timer";
    const std::string_view body = trimmed(text);
    if (body.empty()) return std::nullopt;
    const TimePoint now = dependencies_.clock.now();
    const Calendar& calendar = dependencies_.calendar;
    const auto parsed = CaptureDateParser::parseAlarm(body, now, calendar);
    const bool isCountdown = PreviewText::namesCountdown(body, now, calendar);
    const auto shown = [&](std::string what, bool advised) {
        return PreviewText::withAdvice(std::move(what), advised ? timerAdvice : std::string_view());
    };
    if (!parsed.date) return shown(std::string(PreviewText::noDate), isCountdown);
    if (!parsed.hasTime) return shown("no time", isCountdown);
    // A clock time elsewhere in the text wins over the countdown and is what was meant.
    const bool isMisread = isCountdown && !CaptureDateParser::parseTitleAndDate(body, now, calendar).hasTime;
    return shown(PreviewText::joined(PreviewText::day(*parsed.date, true, now, calendar), parsed.title), isMisread);
}

CaptureFailureGuide AlarmTarget::failureGuide(std::string_view detail) const {
    return ScheduledCapture::failureGuide(detail);
}

Result<CaptureReceipt, CaptureError> AlarmTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                       CaptureAttempt& attempt) {
    const auto failed = [](AlarmTargetError error) { return unexpected(captureError("AlarmTargetError", error)); };
    const std::string capture(trimmed(text));
    if (capture.empty()) return failed(AlarmTargetError::emptyInput);
    const auto parsed = CaptureDateParser::parseAlarm(capture, attempt.confirmedAt(), dependencies_.calendar);
    if (!parsed.date) return failed(AlarmTargetError::noDateTime);
    if (!parsed.hasTime) return failed(AlarmTargetError::dateWithoutTime);
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    const auto scheduled = dependencies_.scheduler.scheduleAlarm(*parsed.date, parsed.title, attempt.captureId());
    if (!scheduled) return unexpected(captureError(scheduled.error()));
    const std::string moment = CaptureDateParser::formatDateTime(*parsed.date, dependencies_.calendar);
    dependencies_.log.line("⏰ AlarmTarget: Scheduled alarm for " + moment + " — '" + characterCount(parsed.title)
                           + "'");
    return CaptureReceipt{"Alarm set — " + moment, std::nullopt, "alarm", false, attempt.captureId()};
}

Result<std::string, CaptureError> AlarmTarget::undo(const std::string&, const std::string& undo, std::stop_token) {
    return ScheduledCapture::cancel(dependencies_.scheduler, undo, "alarm");
}
} // namespace snipwren
