#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "parsing/dates/ClockReader.h"

namespace snipwren {
/// A day that a phrase names, perhaps with the part of it or the time that its notation carries.
struct NamedDay {
    enum class Kind : std::uint8_t {
        relative,
        weekday,
        monthDay,
        monthOnly,
        numeric,
        iso,
        span,
        ordinal,
        dayOfMonth,
        holiday,
        period
    };

    std::size_t end = 0; // The token after it; 0 where there is none.
    std::chrono::sys_days day{};
    Kind kind = Kind::relative;
    bool yearless = false; // The year was chosen, not named.
    bool weak = false;     // Could be everyday words; it needs another sign of a date.
    bool isRange = false;
    std::optional<DayPart> part;
    ClockTime clock; // Of an ISO date with a time.

    explicit operator bool() const { return end != 0; }
};

/// None for an impossible day.
inline std::optional<std::chrono::sys_days> dayOf(int year, int month, int day) {
    const std::chrono::year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day)));
    if (month < 1 || day < 1 || !date.ok()) return std::nullopt;
    return std::chrono::sys_days(date);
}
} // namespace snipwren
