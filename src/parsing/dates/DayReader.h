#pragma once

#include "parsing/dates/DateReference.h"
#include "parsing/dates/MonthDateReader.h"
#include "parsing/dates/NamedDay.h"
#include "parsing/dates/SpanReader.h"

namespace snipwren {
/// Reads the days of date phrases: "next friday", "3 May 2027", "the day after tomorrow", "first Monday of March", "in 3
/// weeks" without its "in".
class DayReader {
public:
    DayReader(const DateTokens& tokens, const DateReference& reference)
        : tokens_(tokens),
          reference_(reference),
          spans_(tokens),
          monthDates_(tokens, reference) {}

    NamedDay read(std::size_t index) const;
    /// A day that is not counted from another one.
    NamedDay readPlain(std::size_t index) const;

private:
    NamedDay readAfterThe(std::size_t index) const;
    NamedDay readDayBesideDay(std::size_t index) const;
    NamedDay readWeekday(std::size_t index) const;
    NamedDay readWeekdayWithNumber(std::size_t index, int weekday) const;
    NamedDay readModified(std::size_t index) const;
    NamedDay readModifiedUnit(std::size_t index, DateWord modifier) const;
    NamedDay readNumberOfWeekdaysAgo(std::size_t index) const;
    NamedDay readSpanFromDay(std::size_t index) const;
    NamedDay readNthOfMonth(std::size_t index) const;
    NamedDay readDayOfMonth(std::size_t index) const;
    NamedDay readEndOf(std::size_t index) const;
    NamedDay readPartOf(std::size_t index) const;

    /// "(the|this|next|last) month", "October 2014": the end, or 0, and the first of that month. `rolls`: no year was
    /// named, so that an occurrence in the past means next year's.
    std::size_t monthEnd(std::size_t index, std::chrono::sys_days& first, bool& rolls) const;
    std::chrono::sys_days weekdayOn(DateWord modifier, int weekday) const;
    NamedDay at(std::chrono::sys_days day, std::size_t end, NamedDay::Kind kind) const;

    const DateTokens& tokens_;
    const DateReference& reference_;
    SpanReader spans_;
    MonthDateReader monthDates_;
};
} // namespace snipwren
