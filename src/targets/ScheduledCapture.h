#pragma once

#include <string>

#include "capture/CaptureTarget.h"
#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
/// What timers and alarms have in common. Stateless.
class ScheduledCapture {
public:
    ScheduledCapture() = delete;
    /// Cancels the pending notification; an error when it is not pending any more. `thing` is "timer" or "alarm".
    static Result<std::string, CaptureError> cancel(NotificationScheduler& scheduler, const std::string& identifier,
                                                    const std::string& thing);
    static CaptureFailureGuide failureGuide(std::string_view detail);
};
} // namespace snipwren
