#include "targets/ScheduledCapture.h"

#include <algorithm>

namespace snipwren {
Result<std::string, CaptureError> ScheduledCapture::cancel(NotificationScheduler& scheduler,
                                                           const std::string& identifier, const std::string& thing) {
    enum Code { notPending = 1, noAnswer };
    const auto failed = [&](const NotificationCenterError& error) {
        return unexpected(
            CaptureError{"NotificationScheduler", noAnswer,
                         "The " + thing + " could not be cancelled (" + error.description + "). Try: snipwren doctor"});
    };
    const auto pending = scheduler.listPendingCaptures();
    if (!pending) return failed(pending.error());
    if (std::ranges::none_of(*pending, [&](const auto& capture) { return capture.id == identifier; }))
        return unexpected(CaptureError{"NotificationScheduler", notPending,
                                       "The " + thing
                                           + " is not pending any more, so nothing was cancelled. Try: "
                                             "snipwren scheduled"});
    if (const auto cancelled = scheduler.cancelPendingCapture(identifier); !cancelled) return failed(cancelled.error());
    return "The " + thing + " was cancelled.";
}

CaptureFailureGuide ScheduledCapture::failureGuide(std::string_view detail) {
    if (!CaptureFailureGuide::isPermissionProblem(detail)) return CaptureFailureGuide::recovery();
    return {"Privacy & Permissions", "notifications", "Open Notification settings"};
}
} // namespace snipwren
