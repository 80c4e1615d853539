#include "targets/TimerTarget.h"

#include <algorithm>
#include <cmath>

#include "base/Text.h"
#include "parsing/DurationParser.h"
#include "parsing/dates/CaptureDateParser.h"
#include "targets/PreviewText.h"
#include "targets/ScheduledCapture.h"
#include "targets/TargetErrors.h"

namespace snipwren {
std::optional<std::string> TimerTarget::preview(const std::string& text) const {
    const std::string_view body = trimmed(text);
    if (body.empty()) return std::nullopt;
    const auto parsed = DurationParser::parse(body);
    if (parsed) return PreviewText::joined(parsed->displayDuration, parsed->label.value_or(""));
    if (parsed.error() == DurationParserError::invalidFormat) return "no duration";
    return std::string(message(parsed.error()));
}

CaptureFailureGuide TimerTarget::failureGuide(std::string_view detail) const {
    return ScheduledCapture::failureGuide(detail);
}

Result<CaptureReceipt, CaptureError> TimerTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                       CaptureAttempt& attempt) {
    const auto parsed = DurationParser::parse(text);
    if (!parsed) return unexpected(captureError("DurationParserError", parsed.error()));
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    const Duration interval(std::llround(parsed->interval * 1e6));
    // A wall clock that was set back meanwhile must not make the countdown longer than it was asked for.
    const Duration left = std::min(interval, attempt.confirmedAt() + interval - dependencies_.clock.now());
    const auto scheduled = dependencies_.scheduler.scheduleTimer(left, parsed->label, attempt.captureId());
    if (!scheduled) return unexpected(captureError(scheduled.error()));
    dependencies_.log.line("⏱️ TimerTarget: Scheduled timer for " + parsed->displayDuration + " "
                           + (parsed->label ? characterCount(*parsed->label) : "(no label)")
                           + ", fireDate=" + isoUtc(scheduled->fireDate));
    return CaptureReceipt{"Timer set — fires at "
                              + CaptureDateParser::formatTime(scheduled->fireDate, dependencies_.calendar),
                          std::nullopt, "timer", false, attempt.captureId()};
}

Result<std::string, CaptureError> TimerTarget::undo(const std::string&, const std::string& undo, std::stop_token) {
    return ScheduledCapture::cancel(dependencies_.scheduler, undo, "timer");
}
} // namespace snipwren
