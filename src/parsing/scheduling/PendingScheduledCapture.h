#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Clock.h"

namespace snipwren {
/// The app-wide event that is posted whenever the pending timers and alarms change.
inline constexpr const char* scheduledCapturesChanged = "ScheduledCapturesChanged";

/// A timer or an alarm that waits for its moment.
struct PendingScheduledCapture {
    enum class Kind { timer, alarm };
    /// The identifier of the notification request.
    std::string id;
    Kind kind = Kind::timer;
    std::string title;
    std::string subtitle;
    std::optional<TimePoint> fireDate;
    std::optional<TimePoint> scheduledAt;

    /// What lists show.
    std::string_view kindLabel() const { return kind == Kind::timer ? "Timer" : "Alarm"; }
    /// What files and other programs read.
    std::string_view kindName() const { return kind == Kind::timer ? "timer" : "alarm"; }
    friend bool operator==(const PendingScheduledCapture&, const PendingScheduledCapture&) = default;
};
} // namespace snipwren
