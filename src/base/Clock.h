#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace snipwren {
/// A moment of wall-clock time, UTC, in microseconds since 1970.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;
using Duration = std::chrono::microseconds;
/// A reading of the monotonic clock; only differences mean something.
using SteadyPoint = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

/// The one source of "now". Thread safe.
class Clock {
public:
    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
    virtual SteadyPoint steadyNow() const = 0;
};

class SystemClock final : public Clock {
public:
    TimePoint now() const override;
    SteadyPoint steadyNow() const override;
};

double secondsSince1970(TimePoint moment);
/// Values beyond what a TimePoint can hold are clamped; NaN is 1970.
TimePoint fromSecondsSince1970(double seconds);
/// "2025-03-04T09:15:02Z": whole seconds, rounded down.
std::string isoUtc(TimePoint moment);
/// The moment that isoUtc wrote; none for any other text.
std::optional<TimePoint> parsedIsoUtc(std::string_view text);
} // namespace snipwren
