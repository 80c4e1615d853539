#include "base/Clock.h"

#include <cmath>

#include <date/date.h>

namespace snipwren {
TimePoint SystemClock::now() const {
    return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

SteadyPoint SystemClock::steadyNow() const { return std::chrono::steady_clock::now(); }

double secondsSince1970(TimePoint moment) { return std::chrono::duration<double>(moment.time_since_epoch()).count(); }

TimePoint fromSecondsSince1970(double seconds) {
    constexpr double limit = 9.0e12; // About 285,000 years: well inside 64-bit microseconds.
    if (std::isnan(seconds)) return TimePoint{};
    const double clamped = std::fmin(std::fmax(seconds, -limit), limit);
    return TimePoint(Duration(std::llround(clamped * 1e6)));
}

std::string isoUtc(TimePoint moment) {
    return date::format("%Y-%m-%dT%H:%M:%SZ", std::chrono::floor<std::chrono::seconds>(moment));
}

std::optional<TimePoint> parsedIsoUtc(std::string_view text) {
    constexpr std::string_view shape = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != shape.size()) return std::nullopt;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (shape[i] == 'd' ? !isDigit : text[i] != shape[i]) return std::nullopt;
    }
    const auto number = [&](std::size_t start, std::size_t length) {
        unsigned value = 0;
        for (std::size_t i = start; i < start + length; ++i) value = value * 10 + static_cast<unsigned>(text[i] - '0');
        return value;
    };
    const date::year_month_day day(date::year(static_cast<int>(number(0, 4))), date::month(number(5, 2)),
                                   date::day(number(8, 2)));
    const unsigned hour = number(11, 2);
    const unsigned minute = number(14, 2);
    const unsigned second = number(17, 2);
    if (!day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return TimePoint(date::sys_days(day) + std::chrono::hours(hour) + std::chrono::minutes(minute)
                     + std::chrono::seconds(second));
}
} // namespace snipwren
