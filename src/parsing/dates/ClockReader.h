#pragma once

#include <optional>

#include "parsing/dates/DateTokens.h"

namespace snipwren {
/// A clock time that a phrase names, still without a day.
struct ClockTime {
    std::size_t end = 0; // The token after it; 0 where there is none.
    int hour = 0;
    int minute = 0;
    int second = 0;
    int dayShift = 0;       // 1 for the midnight that ends the day.
    bool halfKnown = false; // No guess between morning and afternoon is left.
    bool bare = false;      // Nothing but a number, which needs a word before it or a day beside it.
    bool isMidnight = false;
    bool isRange = false;
    bool named = false; // A meridiem, "noon", "o'clock": no score or verse looks like it.
    std::optional<int> zoneMinutes;
    bool americanSummerTime = false;

    explicit operator bool() const { return end != 0; }
};

/// An hour of twelve as it reads in a part of the day: 8 in the evening is 20.
void applyDayPart(ClockTime& clock, DayPart part);

/// Reads clock times: "3pm", "at 15:00", "half past six", "2-4:30pm", "noon", "8 in the evening".
class ClockReader {
public:
    explicit ClockReader(const DateTokens& tokens) : tokens_(tokens) {}

    /// Where a time stands. Beside a day more leading words count; before "tonight" even a
    /// bare number does; directly behind an ISO date a dash begins a zone and no range.
    enum class Place { alone, besideDay, beforeTonight, behindDate };
    /// The time at token `index`, with a leading "at" or "around" and a zone.
    ClockTime read(std::size_t index, Place place) const;
    /// The end of "am", "p.m.", "p m" at `index`, or 0; `half` is 1 for the afternoon.
    std::size_t meridiemEnd(std::size_t index, int& half) const;
    void readZone(ClockTime& clock) const;

private:
    ClockTime readCore(std::size_t index, bool led) const;
    ClockTime readHour(std::size_t index, bool led) const;
    ClockTime readDigits(std::size_t index, bool led) const;
    ClockTime readWords(std::size_t index) const;
    ClockTime readPastOrTo(std::size_t index, bool led) const;
    ClockTime finishHour(ClockTime clock) const;
    void readRange(ClockTime& clock, bool between) const;
    void readTrailingPart(ClockTime& clock) const;
    bool isBareHourPlausible(std::size_t next) const;

    const DateTokens& tokens_;
};
} // namespace snipwren
