#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Clock.h"
#include "base/Result.h"

namespace snipwren {
/// Civil date and time of the Gregorian calendar, without a zone. Month and day count from 1.
struct CivilTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    friend bool operator==(const CivilTime&, const CivilTime&) = default;
};

/// 0 is Sunday, as in the C library.
int weekdayOf(int year, int month, int day);
bool isValidDate(int year, int month, int day);
int daysInMonth(int year, int month);

struct CalendarError {
    std::string description;
};

/// Gregorian calendar in one time zone with the formats of one locale; civil time comes from the system's own zone
/// database, formats and the first weekday from ICU. Immutable, cheap to copy, thread safe.
class Calendar {
public:
    /// `zone` is an IANA name ("Europe/London") or "UTC"; `locale` an ICU name ("en_GB").
    static Result<Calendar, CalendarError> make(std::string_view zone, std::string_view locale);
    /// The zone of TZ or /etc/localtime and the locale of LC_ALL, LC_TIME or LANG; UTC and en_US where unset or unknown.
    static Calendar system();

    const std::string& zoneName() const;
    const std::string& localeName() const;
    /// The order of numeric dates in this locale: true for 4/3 as the third of April (en_US).
    bool monthBeforeDay() const;

    CivilTime civil(TimePoint moment) const;
    /// A civil time in a gap moves forward by the gap's length (02:30 becomes 03:30); in an overlap it is the first of
    /// the two. None for an impossible date or time such as 30 February or 25:00.
    std::optional<TimePoint> resolve(const CivilTime& civil) const;
    std::chrono::seconds utcOffset(TimePoint moment) const;
    /// True when the moment's civil time occurs twice.
    bool isInOverlap(TimePoint moment) const;

    TimePoint startOfDay(TimePoint moment) const;
    /// The same civil time `days` later (or earlier), resolved as by resolve().
    TimePoint addingDays(TimePoint moment, int days) const;
    /// Months and years clamp the day: 31 January plus a month is 28 or 29 February.
    TimePoint addingMonths(TimePoint moment, int months) const;
    TimePoint addingYears(TimePoint moment, int years) const;
    /// Whole calendar days from `from` to `to`.
    int daysBetween(TimePoint from, TimePoint to) const;
    /// 0 is Sunday.
    int weekday(TimePoint moment) const;
    /// The locale's first weekday, 0 is Sunday.
    int firstWeekday() const;
    TimePoint startOfWeek(TimePoint moment) const;

    /// A Unicode date pattern ("yyyy-MM-dd EEEE") in the en_US_POSIX locale. Empty for a pattern that ICU refuses.
    std::string formatPosix(TimePoint moment, std::string_view pattern) const;
    /// A Unicode date pattern in this calendar's locale. Empty for a pattern that ICU refuses.
    std::string format(TimePoint moment, std::string_view pattern) const;
    /// The locale's short time style ("2:00 PM", "14:00").
    std::string formatTime(TimePoint moment) const;
    /// The locale's medium date style and short time style.
    std::string formatDateTime(TimePoint moment) const;

private:
    struct State;
    explicit Calendar(std::shared_ptr<const State> state) : state_(std::move(state)) {}
    std::shared_ptr<const State> state_;
};
} // namespace snipwren
