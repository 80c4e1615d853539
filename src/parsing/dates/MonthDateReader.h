#pragma once

#include "parsing/dates/DateReference.h"
#include "parsing/dates/NamedDay.h"

namespace snipwren {
/// Reads dates that name the month by its name or number: "Aug 10-14, 2026", "the 3rd of March", "8/20", "2027-01-05T14:00Z".
class MonthDateReader {
public:
    MonthDateReader(const DateTokens& tokens, const DateReference& reference)
        : tokens_(tokens),
          reference_(reference),
          clocks_(tokens) {}

    NamedDay readMonthFirst(std::size_t index) const;
    NamedDay readDayFirst(std::size_t index) const;
    NamedDay readNumeric(std::size_t index) const;
    /// A day of the month in digits or words ("3", "3rd", "twenty-fourth"): its end, or 0.
    std::size_t dayNumberEnd(std::size_t index, int& day, bool& ordinal) const;
    /// A year after an optional comma: its end, or 0.
    std::size_t yearEnd(std::size_t index, int& year) const;
    /// The next day of that month and number, today included; none for 31 June.
    std::optional<std::chrono::sys_days> nextOccurrence(int month, int day) const;

private:
    NamedDay monthOnly(std::size_t end, const DateToken& month, int year, bool yearless) const;
    bool takeYear(NamedDay& date, int month, int day, bool twoDigits) const;
    void readIsoTime(NamedDay& date) const;
    std::size_t rangeDayEnd(std::size_t index, int& day, bool& ordinal) const;
    int fullYear(int twoDigits) const;

    const DateTokens& tokens_;
    const DateReference& reference_;
    ClockReader clocks_;
};
} // namespace snipwren
