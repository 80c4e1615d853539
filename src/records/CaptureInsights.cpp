#include "records/CaptureInsights.h"

#include <algorithm>

namespace snipwren {
CaptureStats CaptureInsights::calculate(std::vector<CaptureActivityRecord> records, TimePoint now,
                                        const Calendar& calendar) {
    CaptureStats stats;
    if (records.empty()) return stats;
    std::ranges::stable_sort(records, {}, &CaptureActivityRecord::createdAt);
    const TimePoint today = calendar.startOfDay(now);
    const TimePoint week = calendar.startOfWeek(now);
    std::vector<TimePoint> days; // Distinct, ascending.
    for (const auto& record : records) {
        if (record.createdAt >= today) ++stats.todayCount;
        if (record.createdAt >= week) ++stats.weekCount;
        const TimePoint day = calendar.startOfDay(record.createdAt);
        if (days.empty() || days.back() != day) days.push_back(day);
    }
    stats.totalCount = static_cast<int>(records.size());
    stats.lastCaptureAt = records.back().createdAt;
    stats.lastTarget = records.back().target;

    // The start of a day is asked for again after each step: where the clocks change at midnight it is not 00:00.
    const auto dayBefore = [&](TimePoint day) { return calendar.startOfDay(calendar.addingDays(day, -1)); };
    const auto hasCapture = [&](TimePoint day) { return std::ranges::binary_search(days, day); };
    TimePoint cursor = today;
    if (!hasCapture(cursor)) cursor = dayBefore(cursor);
    for (; hasCapture(cursor); cursor = dayBefore(cursor)) ++stats.streakDays;

    int run = 0;
    for (std::size_t i = 0; i < days.size(); ++i) {
        run = i > 0 && calendar.daysBetween(days[i - 1], days[i]) == 1 ? run + 1 : 1;
        stats.bestStreakDays = std::max(stats.bestStreakDays, run);
    }
    stats.bestStreakDays = std::max(stats.bestStreakDays, stats.streakDays);
    return stats;
}
} // namespace snipwren
