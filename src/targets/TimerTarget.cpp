#include "targets/TimerTarget.h"

#include <cmath>

#include "base/Text.h"
#include "parsing/CaptureDateParser.h"
#include "parsing/DurationParser.h"
#include "targets/TargetErrors.h"

namespace snipwren {
Result<void, CaptureError> TimerTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                             std::stop_token stop) {
    const auto parsed = DurationParser::parse(text);
    if (!parsed) return unexpected(captureError("DurationParserError", parsed.error()));
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    const Duration interval(std::llround(parsed->interval * 1e6));
    const auto scheduled = dependencies_.scheduler.scheduleTimer(interval, parsed->label);
    if (!scheduled) return unexpected(captureError(scheduled.error()));
    dependencies_.landing.announce(
        {commandName_, std::string(trimmed(text)),
         "Timer set — fires at " + CaptureDateParser::formatTime(scheduled->fireDate, dependencies_.calendar),
         std::nullopt, "timer", false});
    dependencies_.log.line("⏱️ TimerTarget: Scheduled timer for " + parsed->displayDuration + " ("
                           + parsed->label.value_or("no label") + "), fireDate=" + isoUtc(scheduled->fireDate));
    return {};
}
} // namespace snipwren
