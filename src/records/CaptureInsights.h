#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Calendar.h"

namespace snipwren {
struct CaptureActivityRecord {
    std::string target;
    TimePoint createdAt;
    friend bool operator==(const CaptureActivityRecord&, const CaptureActivityRecord&) = default;
};

struct CaptureStats {
    int todayCount = 0;
    int weekCount = 0;
    int totalCount = 0;
    /// Days in a row with a capture up to today, or up to yesterday while today has none yet.
    int streakDays = 0;
    int bestStreakDays = 0;
    std::optional<TimePoint> lastCaptureAt;
    std::optional<std::string> lastTarget;
    friend bool operator==(const CaptureStats&, const CaptureStats&) = default;
};

/// The calculation behind the capture statistics.
class CaptureInsights {
public:
    CaptureInsights() = delete;
    static CaptureStats empty() { return {}; }
    /// Records in any order.
    static CaptureStats calculate(std::vector<CaptureActivityRecord> records, TimePoint now, const Calendar& calendar);
};
} // namespace snipwren
