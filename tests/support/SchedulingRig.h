#pragma once

#include "base/ManualQueue.h"
#include "hosts/virtual/VirtualNotificationCenter.h"
#include "parsing/scheduling/NotificationDelegate.h"
#include "parsing/scheduling/NotificationScheduler.h"
#include "support/RecordingHeadsUpPanel.h"

namespace snipwren {
/// The notification scheduler with all that belongs to it, on a clock that is moved by hand.
struct SchedulingRig {
    static constexpr TimePoint start{std::chrono::seconds(1'800'000'000)}; // 2027-01-15 08:00:00 UTC
    ManualClock clock{start};
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    MemoryLog log;
    SystemRandom random;
    Calendar calendar = *Calendar::make("UTC", "en_GB");
    RecordingHeadsUpPanel panel;
    VirtualNotificationCenter center{mainQueue, clock};
    TimerCompletionFallback fallback{{mainQueue, clock, panel, notifications}};
    int timesBroughtToFront = 0;
    NotificationScheduler scheduler{
        {center, fallback, calendar, clock, random, log, notifications, [this] { ++timesBroughtToFront; }}};
    NotificationDelegate delegate{{center, fallback, notifications}};
};
} // namespace snipwren
