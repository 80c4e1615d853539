#pragma once

#include <optional>

#include "parsing/dates/DateReference.h"
#include "parsing/dates/DateTokens.h"

namespace snipwren {
/// A length of time: "3 days", "half an hour", "an hour and a half".
struct TimeSpan {
    std::size_t end = 0; // 0 where there is none.
    int months = 0;
    int days = 0;
    long long seconds = 0;
    bool exact = false; // Hours and less: it leads to a moment and not to a day.

    explicit operator bool() const { return end != 0; }
};

/// The day that lies a span of days, weeks, months or years after (sign 1) or before (-1) another; none beyond the year
/// 9999. Months clamp the day.
std::optional<std::chrono::sys_days> moved(std::chrono::sys_days day, const TimeSpan& span, int sign);

class SpanReader {
public:
    explicit SpanReader(const DateTokens& tokens) : tokens_(tokens) {}

    TimeSpan read(std::size_t index) const;
    /// A unit at `index`: its end, or 0.
    std::size_t unitEnd(std::size_t index, TimeUnit& unit) const;
    /// A number in digits or words at `index` with its end, or 0.
    std::size_t amountEnd(std::size_t index, double& amount) const;

private:
    std::size_t numberEnd(std::size_t index, double& amount) const;

    const DateTokens& tokens_;
};
} // namespace snipwren
