#pragma once

#include <cstdint>
#include <string_view>

namespace snipwren {
/// What a word can be in a date phrase; the grammar is written in these and in no word of any language.
enum class DateWord : std::uint8_t {
    end, // Past the last token.
    plain,
    number,
    symbol,
    // Days and times.
    weekday,     // Value: 0 is Sunday.
    month,       // Value: 1 to 12.
    relativeDay, // Value: days from today.
    tonight,
    dayPart, // Value: DayPart.
    noon,
    midnight,
    meridiem, // Value: 0 before noon, 1 after.
    unit,     // Value: TimeUnit.
    zone,     // Value: minutes east of UTC.
    holiday,  // A word that a holiday's name begins with. Value: 1 where a weekday can be the rest of it.
    // Numbers.
    cardinal, // Value: the number.
    ordinal,  // Value: the number; `second` is also a unit.
    ordinalSuffix,
    article,
    couple,
    few,
    several,
    half,
    quarter,
    // Words that hold phrases together.
    the,
    current, // this
    next,
    last,
    coming,
    past,
    at,
    around,
    on,
    in,
    by,
    forward, // for
    from,
    to,
    through,
    between,
    conjunction, // and
    after,
    before,
    of,
    since,
    within,
    due,
    ago,
    back,
    later,
    now,
    right,
    late,
    finish, // "end" of the month
    clock,
    clockParticle, // the o of o'clock
    ish,
    with,
    // Words beside which a number is not a date.
    label,   // "version", "room": what follows is a name or a number of something.
    measure, // "cup", "people": what stands before is a quantity.
    pronoun, // "we may", "he sat": what follows is a verb.
    copula,  // "is", "was"
};

enum class TimeUnit : std::uint8_t { second, minute, hour, day, week, fortnight, month, year, weekend };
enum class DayPart : std::uint8_t { morning, afternoon, evening, night, tonight };

/// What is particular to a word beyond its meaning.
struct DateWordFlag {
    /// Also an everyday word; in lower case it is a date only beside other signs of one.
    static constexpr std::uint8_t ambiguous = 1;
    static constexpr std::uint8_t abbreviation = 2;
    static constexpr std::uint8_t plural = 4;
    /// Counts only directly behind a digit ("3p", "15m").
    static constexpr std::uint8_t gluedOnly = 8;
    static constexpr std::uint8_t upperOnly = 16;
    /// A zone that keeps daylight saving time by the rules of the United States.
    static constexpr std::uint8_t americanSummerTime = 32;
};

struct DateLexiconEntry {
    std::string_view word; // Lower case.
    DateWord kind = DateWord::plain;
    std::int16_t value = 0;
    std::uint8_t flags = 0;
};

/// The words of one language. Another language is another table.
class DateLexicon {
public:
    static const DateLexicon& english();

    /// `word` in lower case; nullptr for a word that means nothing in dates.
    const DateLexiconEntry* find(std::string_view word) const;

    static constexpr std::size_t maxWordLength = 15;

    DateLexicon(const DateLexiconEntry* entries, std::size_t count);

private:
    static constexpr std::size_t slotCount = 2048; // Sparse, so that a plain word mostly meets an empty slot.
    static std::size_t slotOf(std::string_view word);

    const DateLexiconEntry* entries_;
    std::uint16_t slots_[slotCount] = {}; // Index into the entries plus one; 0 is free.
};
} // namespace snipwren
