#pragma once

#include <optional>

#include "parsing/dates/ClockReader.h"
#include "parsing/dates/DateReference.h"
#include "parsing/dates/DayReader.h"
#include "parsing/dates/SpanReader.h"

namespace snipwren {
/// A whole date phrase: a day, a time, both in either order, or a moment counted from the reference.
struct DatePhrase {
    std::size_t begin = 0; // Tokens.
    std::size_t end = 0;
    /// Seconds from the reference, for "in 20 minutes"; else the civil fields count.
    std::optional<long long> offset;
    std::chrono::sys_days day{};
    int hour = 12;
    int minute = 0;
    int second = 0;
    std::optional<int> zoneMinutes;
    bool americanSummerTime = false;
    bool hasClock = false;
};

/// Puts days and times together and decides whether what looks like a date is one.
class DatePhraseReader {
public:
    DatePhraseReader(const DateTokens& tokens, const DateReference& reference)
        : tokens_(tokens),
          reference_(reference),
          clocks_(tokens),
          days_(tokens, reference),
          spans_(tokens),
          monthDates_(tokens, reference) {}

    /// Whether a phrase can begin with this kind of token at all.
    static bool canBegin(DateWord kind);
    std::optional<DatePhrase> read(std::size_t index) const;

private:
    struct Parts {
        NamedDay day;
        ClockTime clock;
        std::size_t end = 0;
    };

    std::optional<DatePhrase> readOffset(std::size_t index) const;
    Parts readParts(std::size_t index) const;
    NamedDay readForward(std::size_t index) const;
    void takePart(NamedDay& day) const;
    void takeClock(Parts& parts) const;
    void takeDay(Parts& parts) const;
    bool takeRange(Parts& parts) const;
    bool isPlausible(std::size_t begin, const Parts& parts, bool range) const;
    bool isWeakDayPlausible(std::size_t begin, const Parts& parts, bool range) const;
    bool beginsCleanly(std::size_t begin) const;
    bool endsCleanly(std::size_t end) const;
    DatePhrase resolved(std::size_t begin, const Parts& parts) const;

    const DateTokens& tokens_;
    const DateReference& reference_;
    ClockReader clocks_;
    DayReader days_;
    SpanReader spans_;
    MonthDateReader monthDates_;
};
} // namespace snipwren
