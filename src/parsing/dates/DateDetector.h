#pragma once

#include <string_view>
#include <vector>

#include "base/Calendar.h"
#include "base/Text.h"

namespace snipwren {
/// One date phrase of a text.
struct DateMatch {
    Utf16Range range;
    /// The same range in bytes of UTF-8.
    std::size_t start = 0;
    std::size_t end = 0;
    TimePoint date;
    /// The phrase names a moment and not only a day (a bare day is at 12:00, "tomorrow morning" at 09:00).
    bool hasClock = false;
};

/// Finds the date phrases of a text. Reads no clock: all is relative to the reference, in the calendar's zone and with its
/// order of numeric dates. Linear in the text's length.
class DateDetector {
public:
    DateDetector() = delete;

    /// In text order, without overlaps.
    static std::vector<DateMatch> detect(std::string_view text, TimePoint reference, const Calendar& calendar);
};
} // namespace snipwren
