#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace snipwren {
struct DurationParseResult {
    /// Seconds, the sum of all terms.
    double interval = 0;
    /// What is left of the text without the terms; none when nothing is.
    std::optional<std::string> label;
    std::string displayDuration;
};

enum class DurationParserError { emptyInput, invalidFormat, nonPositiveDuration, belowMinimum, exceedsMaximum };
/// The sentence shown to the user as it stands.
std::string_view message(DurationParserError error);

/// Reads timer texts such as "25m tea" or "1h 30m deep work": every number with a unit counts, wherever it stands.
class DurationParser {
public:
    DurationParser() = delete;

    static constexpr double minInterval = 60.0;
    static constexpr double maxInterval = 86400.0;

    static Result<DurationParseResult, DurationParserError> parse(std::string_view text);
    /// "45s", "1m 30s", "25m", "1h 30m"; seconds are not shown once it is an hour.
    static std::string formatInterval(double seconds);
};
} // namespace snipwren
