#include "parsing/dates/MonthDateReader.h"

namespace snipwren {
using W = DateWord;
using Kind = NamedDay::Kind;

namespace {
bool isAmbiguous(const DateToken& token) { return (token.flags & DateWordFlag::ambiguous) != 0 && !token.capital; }
} // namespace

std::optional<std::chrono::sys_days> MonthDateReader::nextOccurrence(int month, int day) const {
    for (int year = reference_.now.year; year <= reference_.now.year + 8;
         ++year) // 29 February can be eight years away.
        if (const auto date = dayOf(year, month, day); date && *date >= reference_.today) return date;
    return std::nullopt;
}

int MonthDateReader::fullYear(int twoDigits) const {
    const int century = reference_.now.year / 100 * 100;
    const int year = century + twoDigits;
    return year > reference_.now.year + 20 ? year - 100 : year;
}

std::size_t MonthDateReader::dayNumberEnd(std::size_t index, int& day, bool& ordinal) const {
    const DateToken& token = tokens_[index];
    ordinal = false;
    if (token.kind == W::number) {
        if (token.digits > 2 || token.value < 1 || token.value > 31) return 0;
        day = token.value;
        ordinal = tokens_.is(index + 1, W::ordinalSuffix) && tokens_.glued(index + 1);
        return index + (ordinal ? 2 : 1);
    }
    if (token.kind == W::ordinal) {
        day = token.value;
        ordinal = true;
        return index + 1;
    }
    if (token.kind == W::cardinal && (token.value == 20 || token.value == 30)) { // "twenty-fourth"
        const std::size_t ones = tokens_.isDash(index + 1) ? index + 2 : index + 1;
        if (!tokens_.is(ones, W::ordinal) || tokens_[ones].value > 9) return 0;
        day = token.value + tokens_[ones].value;
        ordinal = true;
        return day <= 31 ? ones + 1 : 0;
    }
    return 0;
}

std::size_t MonthDateReader::yearEnd(std::size_t index, int& year) const {
    const std::size_t at = tokens_.is(index, U',') ? index + 1 : index;
    const DateToken& token = tokens_[at];
    if (tokens_.isApostrophe(at) && tokens_.is(at + 1, W::number) && tokens_[at + 1].digits == 2
        && tokens_.glued(at + 1)) {
        year = fullYear(tokens_[at + 1].value);
        return at + 2;
    }
    if (token.kind != W::number || token.digits != 4 || token.value < 1500 || token.value > 2499 || token.newLine)
        return 0;
    const DateToken& next = tokens_[at + 1];
    const bool attached = next.kind != W::end && !next.spaced;
    const bool minutes = tokens_.is(at + 1, U':') && tokens_.glued(at + 2) && tokens_.is(at + 2, W::number);
    if (attached && (minutes || next.kind == W::plain || next.kind == W::number)) return 0;
    if (next.kind == W::measure || next.kind == W::meridiem
        || (next.kind == W::unit && next.value == static_cast<int>(TimeUnit::hour)))
        return 0;
    year = token.value;
    return at + 1;
}

/// Fits the year that may follow to the date; false for a day that does not exist in it.
bool MonthDateReader::takeYear(NamedDay& date, int month, int day, bool twoDigits) const {
    int year = 0;
    std::optional<std::chrono::sys_days> found;
    if (const std::size_t end = yearEnd(date.end, year)) {
        date.end = end;
        found = dayOf(year, month, day);
    } else if (const DateToken& token = tokens_[date.end];
               twoDigits && token.kind == W::number && token.digits == 2
               && (tokens_.is(date.end + 1, W::end)
                   || (tokens_.is(date.end + 1, W::symbol) && !tokens_.is(date.end + 1, U':')))) {
        found = dayOf(fullYear(token.value), month, day); // "03 Aug 96"
        ++date.end;
    } else {
        date.yearless = true;
        found = nextOccurrence(month, day);
    }
    if (!found) return false;
    date.day = *found;
    return true;
}

NamedDay MonthDateReader::monthOnly(std::size_t end, const DateToken& month, int year, bool yearless) const {
    const auto day = yearless ? nextOccurrence(month.value, 1) : dayOf(year, month.value, 1);
    if (!day) return {};
    NamedDay date;
    date.end = end;
    date.day = *day;
    date.kind = Kind::monthOnly;
    date.yearless = yearless;
    date.weak = yearless;
    return date;
}

/// The second day of "3-5", "13th to 15": its end, or 0.
std::size_t MonthDateReader::rangeDayEnd(std::size_t index, int& day, bool& ordinal) const {
    const bool dash = tokens_.isDash(index);
    if (!dash && !tokens_.is(index, W::to) && !tokens_.is(index, W::through)) return 0;
    std::size_t at = index + 1;
    if (tokens_.is(at, W::the)) ++at;
    if (tokens_[at].newLine) return 0;
    return dayNumberEnd(at, day, ordinal);
}

NamedDay MonthDateReader::readMonthFirst(std::size_t index) const {
    const DateToken& month = tokens_[index];
    std::size_t at = index + 1;
    if (tokens_.is(at, U'.') && tokens_.glued(at)) ++at;
    const std::size_t afterName = at;
    int year = 0;
    const std::size_t ofYear = tokens_.is(at, W::of) ? at + 1 : at;
    if (const std::size_t end = yearEnd(ofYear, year)) return monthOnly(end, month, year, false);

    if (tokens_.is(at, U',')) ++at; // "May, 3rd"
    const bool joined = (tokens_.isDash(at) || tokens_.is(at, U'/')) && tokens_.glued(at) && tokens_.glued(at + 1);
    if (joined) ++at; // "Jan-5-2027"
    if (tokens_.is(at, W::the)) ++at;
    int day = 0;
    bool ordinal = false;
    std::size_t end = tokens_[at].newLine ? 0 : dayNumberEnd(at, day, ordinal);
    int half = 0;
    if (end != 0 && !ordinal) {
        // "may 3pm", "Aug 7:30", "mar 2.5" name no day of the month.
        const bool attached = tokens_.glued(end) && tokens_.is(end, W::symbol) && tokens_.is(end + 1, W::number)
                              && tokens_.glued(end + 1) && !tokens_.isDash(end) && !tokens_.is(end, U',');
        if (attached || clocks_.meridiemEnd(end, half) != 0 || tokens_.is(end, U'%')) end = 0;
    }
    if (end == 0) return monthOnly(afterName, month, 0, true);

    NamedDay date;
    date.kind = Kind::monthDay;
    date.end = end;
    date.weak = isAmbiguous(month) && !ordinal;
    int lastDay = 0;
    bool lastOrdinal = false;
    if (const std::size_t range = rangeDayEnd(end, lastDay, lastOrdinal)) {
        // "Aug 10 - 11am" is a day and a time, "Aug 20 - 2 tickets" a day and a note.
        const bool timed = clocks_.meridiemEnd(range, half) != 0 || (tokens_.is(range, U':') && tokens_.glued(range));
        const W follower = tokens_[range].kind;
        const bool glued = tokens_.glued(end);
        if (!timed
            && (glued || lastOrdinal || (follower != W::plain && follower != W::measure && follower != W::month))) {
            date.isRange = true;
            date.end = range;
        }
    }
    int ignored = 0;
    if (joined && !date.isRange && tokens_.glued(date.end) && tokens_.glued(date.end + 1)
        && yearEnd(date.end + 1, ignored) != 0)
        ++date.end;
    if (!takeYear(date, month.value, day, false)) return {};
    if (date.isRange) { // "February 20 - 29, 2022" is a slip somewhere: no date at all.
        const std::chrono::year_month_day first(date.day);
        if (!dayOf(static_cast<int>(first.year()), month.value, lastDay)) return {};
    }
    return date;
}

NamedDay MonthDateReader::readDayFirst(std::size_t index) const {
    std::size_t at = tokens_.is(index, W::the) ? index + 1 : index;
    int day = 0;
    bool ordinal = false;
    // "2023 Sept"
    if (tokens_.is(at, W::number) && tokens_[at].digits == 4 && tokens_.is(at + 1, W::month)) {
        if (tokens_[at].value < 1900 || tokens_[at].value > 2199) return {};
        const DateToken& name = tokens_[at + 1];
        std::size_t end = at + 2;
        bool dayOrdinal = false;
        int half = 0;
        if (const std::size_t dayStop = dayNumberEnd(end, day, dayOrdinal);
            dayStop != 0 && !tokens_.is(dayStop, U':') && clocks_.meridiemEnd(dayStop, half) == 0)
            if (const auto found = dayOf(tokens_[at].value, name.value, day)) {
                NamedDay date;
                date.end = dayStop;
                date.day = *found;
                date.kind = Kind::monthDay;
                return date;
            }
        return monthOnly(end, name, tokens_[at].value, false);
    }
    at = dayNumberEnd(at, day, ordinal);
    if (at == 0) return {};
    NamedDay date;
    date.kind = Kind::monthDay;
    int lastDay = 0;
    bool lastOrdinal = false;
    if (const std::size_t range = rangeDayEnd(at, lastDay, lastOrdinal);
        range != 0 && (tokens_.is(range, W::month) || (tokens_.is(range, W::of) && tokens_.is(range + 1, W::month)))) {
        date.isRange = true;
        at = range;
    }
    const bool of = tokens_.is(at, W::of);
    if (of) ++at;
    if ((tokens_.isDash(at) || tokens_.is(at, U'/')) && tokens_.glued(at) && tokens_.glued(at + 1))
        ++at; // "09/JAN/2017"
    const DateToken& month = tokens_[at];
    if (month.kind != W::month || month.newLine) return {};
    date.weak = isAmbiguous(month) && !ordinal && !of;
    date.end = at + 1;
    if (tokens_.is(date.end, U'.') && tokens_.glued(date.end)) ++date.end;
    const bool separated = (tokens_.isDash(date.end) || tokens_.is(date.end, U'/')) && tokens_.glued(date.end)
                           && tokens_.is(date.end + 1, W::number) && tokens_.glued(date.end + 1);
    if (separated) ++date.end;
    if (tokens_.is(date.end, W::of)) { // "the 3rd of March of 2027"
        int year = 0;
        if (yearEnd(date.end + 1, year) != 0) ++date.end;
    }
    const std::size_t beforeYear = date.end;
    if (!takeYear(date, month.value, day, true)) return {};
    if (separated && date.end == beforeYear) return {}; // "9-Jan-x"
    if (!date.yearless) date.weak = false;
    const int year = static_cast<int>(std::chrono::year_month_day(date.day).year());
    if (date.isRange && !dayOf(year, month.value, lastDay)) return {};
    return date;
}

NamedDay MonthDateReader::readNumeric(std::size_t index) const {
    const DateToken& first = tokens_[index];
    const DateToken& separator = tokens_[index + 1];
    const DateToken& second = tokens_[index + 2];
    if (separator.kind != W::symbol || separator.spaced || second.kind != W::number || second.spaced
        || second.digits > 2)
        return {};
    if (separator.value != '/' && separator.value != '-' && separator.value != '.') return {};
    const bool repeated = tokens_.is(index + 3, static_cast<char32_t>(separator.value)) && tokens_.glued(index + 3)
                          && tokens_.is(index + 4, W::number) && tokens_.glued(index + 4);
    const DateToken& third = tokens_[index + 4];
    NamedDay date;
    std::optional<std::chrono::sys_days> found;
    if (first.digits == 4) {
        if (!repeated || third.digits > 2 || first.value < 1500 || first.value > 2499) return {};
        date.kind = Kind::iso;
        date.end = index + 5;
        found = dayOf(first.value, second.value, third.value);
    } else if (first.digits <= 2) {
        date.kind = Kind::numeric;
        int month = reference_.monthBeforeDay ? first.value : second.value;
        int day = reference_.monthBeforeDay ? second.value : first.value;
        if (month > 12) std::swap(month, day);
        if (repeated) {
            if (third.digits != 2 && third.digits != 4) return {};
            if (third.digits == 2 && separator.value != '/') {
                // "4-5-6" and "10.2.14" are numbers of something; "10-31-74" is written by people.
                const bool dotted = separator.value == '.';
                if (first.digits != 2 || second.digits != 2 || (dotted && reference_.monthBeforeDay)) return {};
            }
            if (third.digits == 4 && (third.value < 1500 || third.value > 2499)) return {};
            date.end = index + 5;
            found = dayOf(third.digits == 2 ? fullYear(third.value) : third.value, month, day);
        } else {
            if (separator.value != '/') return {};
            if (first.value == 24 && second.value == 7) return {}; // Round the clock, not a day of July.
            date.end = index + 3;
            date.yearless = true;
            // "1/2 cup", "9/10": fractions and marks look alike, so these need another sign of a date.
            const int denominator = second.value;
            date.weak = first.value == denominator
                        || (first.value < denominator && first.digits == 1
                            && (denominator <= 5 || denominator == 8 || denominator == 10));
            if (month >= 1) found = nextOccurrence(month, day);
        }
    }
    if (!found) return {};
    date.day = *found;
    if (date.kind == Kind::iso) readIsoTime(date);
    return date;
}

/// "T13:15:30.5Z", "T08:15-05:30" directly behind the date.
void MonthDateReader::readIsoTime(NamedDay& date) const {
    const DateToken& letter = tokens_[date.end];
    const std::string_view t = tokens_.text(letter);
    if ((t != "T" && t != "t") || letter.spaced || !tokens_.is(date.end + 1, W::number) || !tokens_.glued(date.end + 1))
        return;
    ClockTime clock = clocks_.read(date.end + 1, ClockReader::Place::behindDate);
    if (!clock || clock.bare) return;
    clock.halfKnown = true;
    const std::size_t sign = clock.end;
    const bool minus = tokens_.isDash(sign);
    const DateToken& hours = tokens_[sign + 1];
    if (!clock.zoneMinutes && tokens_.glued(sign) && (minus || tokens_.is(sign, U'+')) && tokens_.glued(sign + 1)
        && hours.kind == W::number) {
        int minutes = -1;
        std::size_t end = sign + 2;
        if (hours.digits == 4) {
            minutes = hours.value / 100 * 60 + hours.value % 100;
        } else if (hours.digits == 2) {
            minutes = hours.value * 60;
            if (tokens_.is(end, U':') && tokens_.is(end + 1, W::number) && tokens_[end + 1].digits == 2) {
                minutes += tokens_[end + 1].value;
                end += 2;
            }
        }
        if (minutes >= 0 && minutes <= 14 * 60) {
            clock.zoneMinutes = minus ? -minutes : minutes;
            clock.end = end;
        }
    }
    date.clock = clock;
    date.end = clock.end;
}
} // namespace snipwren
