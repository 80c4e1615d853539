#include "records/CaptureInsights.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TimePoint at(const Calendar& calendar, int year, int month, int day, int hour = 12, int minute = 0) {
    return *calendar.resolve({year, month, day, hour, minute, 0});
}

TEST(CaptureInsights, CountsAndStreaks) {
    const Calendar calendar = *Calendar::make("Europe/London", "en_GB"); // Weeks begin on Monday.
    // Tuesday, 4 March 2025.
    const TimePoint now = at(calendar, 2025, 3, 4, 9);
    const auto capture = [&](int month, int day, int hour = 12) {
        return CaptureActivityRecord{"note", at(calendar, 2025, month, day, hour)};
    };
    const auto yesterday = capture(3, 3);
    const auto before = capture(3, 2);
    const struct {
        const char* name;
        std::vector<CaptureActivityRecord> records;
        int today, week, streak, best;
    } cases[] = {
        {"none", {}, 0, 0, 0, 0},
        {"two days, none yet today", {before, yesterday}, 0, 1, 2, 2},
        {"with one today, unsorted", {capture(3, 4, 0), before, yesterday}, 1, 2, 3, 3},
        {"yesterday is missing", {before, capture(3, 1)}, 0, 0, 0, 2},
        {"a gap starts anew", {capture(2, 1), capture(2, 2), capture(2, 3), yesterday}, 0, 1, 1, 3},
        {"twice a day counts once", {yesterday, yesterday, capture(3, 3, 23)}, 0, 3, 1, 1},
        {"later than now", {capture(3, 5)}, 1, 1, 0, 1},
    };
    for (const auto& one : cases) {
        const CaptureStats stats = CaptureInsights::calculate(one.records, now, calendar);
        EXPECT_EQ(stats.todayCount, one.today) << one.name;
        EXPECT_EQ(stats.weekCount, one.week) << one.name;
        EXPECT_EQ(stats.totalCount, static_cast<int>(one.records.size())) << one.name;
        EXPECT_EQ(stats.streakDays, one.streak) << one.name;
        EXPECT_EQ(stats.bestStreakDays, one.best) << one.name;
    }
    const CaptureStats last = CaptureInsights::calculate({{"slack", now}, {"note", before.createdAt}}, now, calendar);
    EXPECT_EQ(last.lastTarget, "slack");
    EXPECT_EQ(last.lastCaptureAt, now);
    EXPECT_EQ(CaptureInsights::calculate({}, now, calendar), CaptureInsights::empty());
}

TEST(CaptureInsights, TheWeekBeginsWhereTheLocaleSaysSo) {
    const auto sunday = [](const char* locale) {
        const Calendar calendar = *Calendar::make("UTC", locale);
        return CaptureInsights::calculate({{"note", at(calendar, 2025, 3, 2)}}, at(calendar, 2025, 3, 4), calendar)
            .weekCount;
    };
    EXPECT_EQ(sunday("en_US"), 1);
    EXPECT_EQ(sunday("en_GB"), 0);
}

TEST(CaptureInsights, AStreakSurvivesClockChanges) {
    // In the first zone the clocks change at midnight, so a day begins at 01:00; in the second a day has 25 hours.
    const struct {
        const char* zone;
        int year, month, day;
    } cases[] = {{"America/Santiago", 2024, 9, 6}, {"Europe/London", 2024, 10, 25}};
    for (const auto& one : cases) {
        const Calendar calendar = *Calendar::make(one.zone, "en_US");
        std::vector<CaptureActivityRecord> records;
        records.reserve(5);
        for (int i = 0; i < 5; ++i)
            records.push_back({"note", at(calendar, one.year, one.month, one.day + i, i % 2 ? 1 : 23, 30)});
        const CaptureStats stats =
            CaptureInsights::calculate(records, at(calendar, one.year, one.month, one.day + 4, 23, 45), calendar);
        EXPECT_EQ(stats.streakDays, 5) << one.zone;
        EXPECT_EQ(stats.bestStreakDays, 5) << one.zone;
    }
}
} // namespace
} // namespace snipwren
