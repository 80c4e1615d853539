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
} // namespace snipwren
