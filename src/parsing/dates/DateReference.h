#pragma once

#include <chrono>

#include "base/Calendar.h"

namespace snipwren {
/// What the words of a date phrase are relative to.
struct DateReference {
    CivilTime now;
    std::chrono::sys_days today;
    int weekday = 0; // 0 is Sunday.
    bool monthBeforeDay = true;

    static DateReference of(TimePoint moment, const Calendar& calendar) {
        DateReference reference;
        reference.now = calendar.civil(moment);
        reference.today = std::chrono::sys_days(std::chrono::year(reference.now.year)
                                                / std::chrono::month(static_cast<unsigned>(reference.now.month))
                                                / std::chrono::day(static_cast<unsigned>(reference.now.day)));
        reference.weekday = static_cast<int>(std::chrono::weekday(reference.today).c_encoding());
        reference.monthBeforeDay = calendar.monthBeforeDay();
        return reference;
    }

    /// The Monday of this week.
    std::chrono::sys_days monday() const { return today - std::chrono::days((weekday + 6) % 7); }
};
} // namespace snipwren
