#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Calendar.h"

namespace snipwren {
struct CaptureDateParseResult {
    /// The text without the words of the date; never empty when a date was found.
    std::string title;
    std::optional<TimePoint> date;
    /// False for a bare date.
    bool hasTime = false;
};

/// True when a date phrase names a clock time. Plain containment ("team" counts, for its "am"), or "at 5".
bool checkHasTimePattern(std::string_view text);
/// Trimmed, and without one trailing "at", "on", "by", "next", "this", "for", "in" or "to".
std::string stripTrailingPrepositions(std::string_view text);

/// Turns a capture such as "dentist tomorrow at 3pm" into a title and a date. Reads no clock and no time zone but those
/// it is handed.
class CaptureDateParser {
public:
    CaptureDateParser() = delete;

    static CaptureDateParseResult parseTitleAndDate(std::string_view text, TimePoint referenceDate,
                                                    const Calendar& calendar);
    /// Insists on a clock time: where the phrase names none, the first number that can be an hour is one.
    static CaptureDateParseResult parseAlarm(std::string_view text, TimePoint referenceDate, const Calendar& calendar);
    /// A bare date at the given time of its day; a timed one unchanged.
    static std::optional<TimePoint> dateWithDefaultMorningTime(const CaptureDateParseResult& result,
                                                               const Calendar& calendar, int hour = 9, int minute = 0);
    /// The locale's short time style, no date.
    static std::string formatTime(TimePoint date, const Calendar& calendar);
    /// Medium date style and short time style.
    static std::string formatDateTime(TimePoint date, const Calendar& calendar);
};
} // namespace snipwren
