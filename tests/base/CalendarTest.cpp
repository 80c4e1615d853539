#include "base/Calendar.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
Calendar in(const char* zone, const char* locale = "en_US") { return Calendar::make(zone, locale).value(); }

std::string roundTrip(const Calendar& calendar, const CivilTime& civil) {
    const auto moment = calendar.resolve(civil);
    return moment ? calendar.formatPosix(*moment, "yyyy-MM-dd HH:mm") + " " + isoUtc(*moment) : "none";
}

TEST(Calendar, ResolvesGapsForwardAndOverlapsToTheFirst) {
    const struct {
        const char* zone;
        CivilTime civil;
        const char* want;
    } cases[] = {
        {"Europe/London", {2026, 3, 29, 1, 30, 0}, "2026-03-29 02:30 2026-03-29T01:30:00Z"},
        {"Europe/London", {2026, 10, 25, 1, 30, 0}, "2026-10-25 01:30 2026-10-25T00:30:00Z"},
        {"America/New_York", {2026, 3, 8, 2, 30, 0}, "2026-03-08 03:30 2026-03-08T07:30:00Z"},
        {"Australia/Lord_Howe", {2026, 10, 4, 2, 15, 0}, "2026-10-04 02:45 2026-10-03T15:45:00Z"},
        // The system's zone data, not ICU's older copy, which has no summer time for Cairo.
        {"Africa/Cairo", {2027, 7, 1, 12, 0, 0}, "2027-07-01 12:00 2027-07-01T09:00:00Z"},
        {"UTC", {2026, 2, 29, 0, 0, 0}, "none"},
        {"UTC", {2028, 2, 29, 0, 0, 0}, "2028-02-29 00:00 2028-02-29T00:00:00Z"},
        {"UTC", {2026, 1, 1, 24, 0, 0}, "none"},
    };
    for (const auto& [zone, civil, want] : cases) EXPECT_EQ(roundTrip(in(zone), civil), want) << zone;
}

TEST(Calendar, AddsCalendarUnitsAcrossClockChanges) {
    const Calendar london = in("Europe/London");
    const TimePoint before = london.resolve({2026, 3, 28, 9, 0, 0}).value();
    EXPECT_EQ(london.addingDays(before, 1) - before, std::chrono::hours(23));
    EXPECT_EQ(london.daysBetween(before, london.addingDays(before, 370)), 370);
    const TimePoint leap = london.resolve({2028, 2, 29, 8, 0, 0}).value();
    EXPECT_EQ(london.civil(london.addingYears(leap, 1)), (CivilTime{2029, 2, 28, 8, 0, 0}));
    EXPECT_EQ(london.civil(london.addingMonths(leap, -14)), (CivilTime{2026, 12, 29, 8, 0, 0}));
    EXPECT_TRUE(london.isInOverlap(london.resolve({2026, 10, 25, 1, 30, 0}).value()));
    EXPECT_FALSE(london.isInOverlap(before));
}

TEST(Calendar, WeekStartsAndNumericOrderFollowTheLocale) {
    const Calendar us = in("UTC", "en_US");
    const Calendar gb = in("UTC", "en_GB");
    const TimePoint sunday = us.resolve({2026, 11, 22, 15, 0, 0}).value();
    EXPECT_EQ(us.civil(us.startOfWeek(sunday)), (CivilTime{2026, 11, 22, 0, 0, 0}));
    EXPECT_EQ(gb.civil(gb.startOfWeek(sunday)), (CivilTime{2026, 11, 16, 0, 0, 0}));
    EXPECT_TRUE(us.monthBeforeDay());
    EXPECT_FALSE(gb.monthBeforeDay());
    EXPECT_EQ(gb.formatTime(sunday), "15:00");
    EXPECT_NE(us.formatTime(sunday).find("3:00"), std::string::npos);
}

TEST(Calendar, NamesAnUnknownZone) {
    const auto calendar = Calendar::make("Mars/Olympus", "en_US");
    ASSERT_FALSE(calendar);
    EXPECT_NE(calendar.error().description.find("Mars/Olympus"), std::string::npos);
}
} // namespace
} // namespace snipwren
