#pragma once

#include "parsing/dates/DateReference.h"
#include "parsing/dates/MonthDateReader.h"
#include "parsing/dates/NamedDay.h"

namespace snipwren {
/// Reads the names of common holidays, with a year behind them or the next one after the reference.
class HolidayReader {
public:
    HolidayReader(const DateTokens& tokens, const DateReference& reference)
        : tokens_(tokens),
          reference_(reference),
          monthDates_(tokens, reference) {}

    /// `past`: the most recent one ("last christmas").
    NamedDay read(std::size_t index, bool past) const;

private:
    std::size_t nameEnd(std::size_t index, std::string_view name) const;

    const DateTokens& tokens_;
    const DateReference& reference_;
    MonthDateReader monthDates_;
};
} // namespace snipwren
