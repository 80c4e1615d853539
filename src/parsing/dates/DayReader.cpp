#include "parsing/dates/DayReader.h"

#include "parsing/dates/HolidayReader.h"

namespace snipwren {
using W = DateWord;
using Kind = NamedDay::Kind;
using std::chrono::days;
using std::chrono::sys_days;

namespace {
int weekdayOf(sys_days day) { return static_cast<int>(std::chrono::weekday(day).c_encoding()); }

sys_days firstOfMonth(sys_days day) {
    const std::chrono::year_month_day date(day);
    return sys_days(date.year() / date.month() / 1);
}

sys_days lastOfMonth(sys_days day) {
    const std::chrono::year_month_day date(day);
    return sys_days(date.year() / date.month() / std::chrono::last);
}

sys_days monthsLater(sys_days first, int months) {
    const std::chrono::year_month_day date(first);
    return sys_days((date.year() / date.month() + std::chrono::months(months)) / date.day());
}

bool isModifier(W kind) {
    return kind == W::current || kind == W::next || kind == W::last || kind == W::coming || kind == W::past;
}
} // namespace

NamedDay DayReader::at(sys_days day, std::size_t end, Kind kind) const {
    NamedDay date;
    date.day = day;
    date.end = end;
    date.kind = kind;
    return date;
}

NamedDay DayReader::read(std::size_t index) const {
    switch (tokens_[index].kind) {
    case W::number:
    case W::cardinal:
    case W::article:
    case W::couple:
    case W::few:
    case W::half:
    case W::several:
        if (const NamedDay date = readSpanFromDay(index)) return date;
        break;
    default: break;
    }
    return readPlain(index);
}

NamedDay DayReader::readPlain(std::size_t index) const {
    const DateToken& token = tokens_[index];
    switch (token.kind) {
    case W::relativeDay:
        if ((token.flags & DateWordFlag::gluedOnly) != 0) return {};
        return at(reference_.today + days(token.value), index + 1, Kind::relative);
    case W::tonight: {
        NamedDay date = at(reference_.today, index + 1, Kind::relative);
        date.part = DayPart::tonight;
        return date;
    }
    case W::weekday: return readWeekday(index);
    case W::current:
    case W::next:
    case W::last:
    case W::coming:
    case W::past:
        if (token.kind == W::last)
            if (const NamedDay date = readNthOfMonth(index)) return date;
        return readModified(index);
    case W::month: return monthDates_.readMonthFirst(index);
    case W::the: return readAfterThe(index);
    case W::unit: return readDayBesideDay(index);
    case W::number:
        if (token.digits == 1 && token.value == 2 && tokens_.is(index + 1, W::relativeDay) && tokens_.glued(index + 1)
            && (tokens_[index + 1].flags & DateWordFlag::gluedOnly) != 0)
            return at(reference_.today + days(1), index + 2, Kind::relative); // "2moro"
        if (const NamedDay date = monthDates_.readNumeric(index)) return date;
        [[fallthrough]];
    case W::ordinal:
    case W::cardinal:
        if (const NamedDay date = monthDates_.readDayFirst(index)) return date;
        if (const NamedDay date = readNthOfMonth(index)) return date;
        return readDayOfMonth(index);
    case W::holiday: return HolidayReader(tokens_, reference_).read(index, false);
    case W::finish: return readEndOf(index);
    case W::dayPart: return readPartOf(index);
    case W::late: { // "late last night", "early tomorrow morning"
        const W next = tokens_[index + 1].kind;
        if (next != W::last && next != W::relativeDay && next != W::tonight && next != W::current && next != W::weekday)
            return {};
        NamedDay date = readPlain(index + 1);
        if (next == W::last && date && !date.part) return {};
        return date;
    }
    case W::later:
        return tokens_.is(index + 1, W::relativeDay) && tokens_[index + 1].value == 0
                   ? at(reference_.today, index + 2, Kind::relative)
                   : NamedDay();
    default: return {};
    }
}

NamedDay DayReader::readAfterThe(std::size_t index) const {
    const W next = tokens_[index + 1].kind;
    if (next == W::unit) return readDayBesideDay(index + 1);
    if (next == W::finish) return readEndOf(index + 1);
    if (next == W::number || next == W::ordinal || next == W::cardinal || next == W::last) {
        if (next != W::last)
            if (const NamedDay date = monthDates_.readDayFirst(index + 1)) return date;
        if (const NamedDay date = readNthOfMonth(index + 1)) return date;
        if (next != W::last) return readDayOfMonth(index + 1);
    }
    if (next == W::dayPart) return readPartOf(index + 1);
    if (next == W::coming && tokens_.is(index + 2, W::weekday)) return readModified(index + 1);
    return {};
}

/// "day after tomorrow", "day before yesterday".
NamedDay DayReader::readDayBesideDay(std::size_t index) const {
    const DateToken& token = tokens_[index];
    if (token.kind != W::unit || token.value != static_cast<int>(TimeUnit::day)) return {};
    const bool after = tokens_.is(index + 1, W::after);
    if (!after && !tokens_.is(index + 1, W::before)) return {};
    const DateToken& base = tokens_[index + 2];
    if (base.kind != W::relativeDay) return {};
    return at(reference_.today + days(base.value + (after ? 1 : -1)), index + 3, Kind::relative);
}

sys_days DayReader::weekdayOn(W modifier, int weekday) const {
    const int ahead = (weekday - reference_.weekday + 7) % 7;
    switch (modifier) {
    case W::current: return reference_.today + days(ahead);
    case W::next: return reference_.monday() + days(7 + (weekday + 6) % 7);
    case W::last:
    case W::past: return reference_.today - days(ahead == 0 ? 7 : 7 - ahead);
    default: return reference_.today + days(ahead == 0 ? 7 : ahead);
    }
}

NamedDay DayReader::readWeekday(std::size_t index) const {
    const DateToken& token = tokens_[index];
    if ((token.flags & DateWordFlag::plural) != 0) return {};
    NamedDay date = at(weekdayOn(W::on, token.value), index + 1, Kind::weekday);
    std::size_t stop = index + 1;
    if ((token.flags & DateWordFlag::abbreviation) != 0 && tokens_.is(stop, U'.') && tokens_.glued(stop))
        date.end = ++stop;
    if (tokens_.is(stop, U',')) ++stop;
    // The date that the weekday belongs to, if one follows.
    const W next = tokens_[stop].kind;
    if (!tokens_[stop].newLine
        && (next == W::month || next == W::number || next == W::the || next == W::ordinal || next == W::cardinal)) {
        NamedDay exact;
        if (next == W::month) {
            exact = monthDates_.readMonthFirst(stop);
            if (exact.kind == Kind::monthOnly) exact = {};
        } else {
            exact = monthDates_.readDayFirst(stop);
            if (exact.kind == Kind::monthOnly) exact = {};
            if (!exact && next == W::number) exact = monthDates_.readNumeric(stop);
            if (!exact) exact = readWeekdayWithNumber(stop, token.value);
        }
        if (exact) {
            exact.weak = false;
            return exact;
        }
    }
    // "monday of this week", "Friday next week", "sunday from last week", "friday after next".
    if (tokens_.is(stop, W::after) && tokens_.is(stop + 1, W::next)) {
        const W after = tokens_[stop + 2].kind;
        if (after == W::end || after == W::symbol || after == W::at)
            return at(weekdayOn(W::next, token.value) + days(7), stop + 2, Kind::weekday);
    }
    if (tokens_.is(stop, W::of) || tokens_.is(stop, W::from)) ++stop;
    if (const W modifier = tokens_[stop].kind; isModifier(modifier) && tokens_.is(stop + 1, W::unit)
                                               && tokens_[stop + 1].value == static_cast<int>(TimeUnit::week)) {
        int weeks = 0;
        if (modifier == W::next || modifier == W::coming) weeks = 1;
        if (modifier == W::last || modifier == W::past) weeks = -1;
        return at(reference_.monday() + days(7 * weeks + (token.value + 6) % 7), stop + 2, Kind::weekday);
    }
    date.weak = (token.flags & DateWordFlag::ambiguous) != 0;
    return date;
}

/// "Tuesday the 19th": the next such day that is that weekday.
NamedDay DayReader::readWeekdayWithNumber(std::size_t index, int weekday) const {
    const std::size_t start = tokens_.is(index, W::the) ? index + 1 : index;
    int number = 0;
    bool ordinal = false;
    const std::size_t end = monthDates_.dayNumberEnd(start, number, ordinal);
    if (end == 0 || !ordinal) return {};
    sys_days first = firstOfMonth(reference_.today);
    for (int months = 0; months < 48; ++months) {
        const sys_days day = first + days(number - 1);
        if (day <= lastOfMonth(first) && day >= reference_.today && weekdayOf(day) == weekday)
            return at(day, end, Kind::ordinal);
        first = monthsLater(first, 1);
    }
    return {};
}

/// "this saturday", "next march", "last week", "this evening", "next two weeks", "this past Weds".
NamedDay DayReader::readModified(std::size_t index) const {
    W modifier = tokens_[index].kind;
    std::size_t stop = index + 1;
    if (modifier == W::current
        && (tokens_.is(stop, W::coming) || tokens_.is(stop, W::past) || tokens_.is(stop, W::last)))
        modifier = tokens_[stop++].kind;
    const DateToken& token = tokens_[stop];
    if (token.newLine) return {};
    switch (token.kind) {
    case W::weekday: {
        if ((token.flags & DateWordFlag::plural) != 0) return {};
        NamedDay date = at(weekdayOn(modifier, token.value), stop + 1, Kind::weekday);
        if ((token.flags & DateWordFlag::abbreviation) != 0 && tokens_.is(date.end, U'.') && tokens_.glued(date.end))
            ++date.end;
        return date;
    }
    case W::month: {
        NamedDay date = monthDates_.readMonthFirst(stop);
        if (date.kind == Kind::monthOnly && date.yearless) {
            date.weak = false;
            const int year = reference_.now.year;
            const auto thisYear = dayOf(year, token.value, 1);
            if (modifier == W::current && thisYear) date.day = *thisYear;
            if ((modifier == W::last || modifier == W::past) && thisYear)
                date.day = *thisYear < firstOfMonth(reference_.today) ? *thisYear : *dayOf(year - 1, token.value, 1);
        }
        return date;
    }
    case W::unit: return readModifiedUnit(stop, modifier);
    case W::dayPart: {
        const auto part = static_cast<DayPart>(token.value);
        NamedDay date = at(reference_.today, stop + 1, Kind::relative);
        date.part = part;
        if (modifier == W::current) return date;
        if (modifier != W::last && modifier != W::past) return {};
        date.day -= days(1); // "last night"
        return date;
    }
    case W::holiday: {
        NamedDay date = HolidayReader(tokens_, reference_).read(stop, modifier == W::last || modifier == W::past);
        date.weak = false;
        return date;
    }
    case W::number:
    case W::cardinal:
    case W::couple:
    case W::few:
    case W::several: {
        if (modifier == W::current) return {};
        const TimeSpan span = spans_.read(stop);
        if (!span || span.exact) return {};
        const bool back = modifier == W::last || modifier == W::past;
        const auto day = moved(reference_.today, span, back ? -1 : 1);
        return day ? at(*day, span.end, Kind::span) : NamedDay();
    }
    case W::plain: return {};
    default: return {};
    }
}

NamedDay DayReader::readModifiedUnit(std::size_t index, W modifier) const {
    std::size_t end = index + 1;
    auto unit = static_cast<TimeUnit>(tokens_[index].value);
    if (unit == TimeUnit::week && tokens_.isDash(end) && tokens_.glued(end) && tokens_.is(end + 1, W::finish)) {
        unit = TimeUnit::weekend; // "week-end"
        end += 2;
    }
    const int sign = modifier == W::current ? 0 : modifier == W::last || modifier == W::past ? -1 : 1;
    switch (unit) {
    case TimeUnit::weekend: {
        if (modifier == W::last && (tokens_.is(end, W::in) || tokens_.is(end, W::of))) {
            sys_days first{};
            bool rolls = false;
            if (const std::size_t stop = monthEnd(end + 1, first, rolls)) {
                sys_days day = lastOfMonth(first);
                while (weekdayOf(day) != 6) day -= days(1);
                return at(day, stop, Kind::period);
            }
        }
        sys_days saturday = reference_.monday() + days(5 + 7 * sign);
        if (modifier == W::current && reference_.weekday == 0) saturday = reference_.today;
        if (modifier == W::coming) saturday = weekdayOn(W::coming, 6);
        return at(saturday, end, Kind::period);
    }
    case TimeUnit::week:
    case TimeUnit::fortnight:
        if (sign == 0) return unit == TimeUnit::week ? at(reference_.today, end, Kind::period) : NamedDay();
        return at(reference_.today + days(sign * (unit == TimeUnit::week ? 7 : 14)), end, Kind::period);
    case TimeUnit::month:
    case TimeUnit::year: {
        if (sign == 0) {
            const std::chrono::year_month_day now(reference_.today);
            return at(unit == TimeUnit::month ? firstOfMonth(reference_.today)
                                              : sys_days(now.year() / std::chrono::January / 1),
                      end, Kind::period);
        }
        TimeSpan span;
        span.months = unit == TimeUnit::month ? 1 : 12;
        const auto day = moved(reference_.today, span, sign);
        return day ? at(*day, end, Kind::period) : NamedDay();
    }
    case TimeUnit::day:
        return sign == 1 && modifier == W::next ? at(reference_.today + days(1), end, Kind::relative) : NamedDay();
    default: return {};
    }
}

/// "2 thursdays ago"
NamedDay DayReader::readNumberOfWeekdaysAgo(std::size_t index) const {
    double amount = 0;
    const std::size_t stop = spans_.amountEnd(index, amount);
    if (stop == 0 || !tokens_.is(stop, W::weekday) || !tokens_.is(stop + 1, W::ago) || amount < 1 || amount > 1000)
        return {};
    const sys_days latest = weekdayOn(W::last, tokens_[stop].value);
    return at(latest - days(7 * (static_cast<int>(amount) - 1)), stop + 2, Kind::span);
}

/// "3 days from now", "2 weeks ago", "a week from friday", "2 months before 02/02".
NamedDay DayReader::readSpanFromDay(std::size_t index) const {
    if (const NamedDay date = readNumberOfWeekdaysAgo(index)) return date;
    const TimeSpan span = spans_.read(index);
    if (!span || span.exact) return {};
    const std::size_t stop = span.end;
    const auto result = [&](sys_days base, int sign, std::size_t end) {
        const auto day = moved(base, span, sign);
        return day ? at(*day, end, Kind::span) : NamedDay();
    };
    switch (tokens_[stop].kind) {
    case W::ago:
    case W::back: return result(reference_.today, -1, stop + 1);
    case W::later: return result(reference_.today, 1, stop + 1);
    case W::from:
    case W::after:
    case W::before: {
        if (tokens_.is(stop + 1, W::now))
            return result(reference_.today, tokens_.is(stop, W::before) ? -1 : 1, stop + 2);
        const NamedDay base = readPlain(stop + 1);
        if (!base || base.part) return {};
        return result(base.day, tokens_.is(stop, W::before) ? -1 : 1, base.end);
    }
    default: return {};
    }
}

std::size_t DayReader::monthEnd(std::size_t index, sys_days& first, bool& rolls) const {
    const DateToken& token = tokens_[index];
    rolls = false;
    first = firstOfMonth(reference_.today);
    if (token.kind == W::the || isModifier(token.kind)) {
        const std::size_t name = token.kind == W::the && isModifier(tokens_[index + 1].kind) ? index + 1 : index;
        if (!tokens_.is(name + 1, W::unit) || tokens_[name + 1].value != static_cast<int>(TimeUnit::month)) return 0;
        const W modifier = tokens_[name].kind;
        if (modifier == W::next || modifier == W::coming) first = monthsLater(first, 1);
        if (modifier == W::last || modifier == W::past) first = monthsLater(first, -1);
        return name + 2;
    }
    if (token.kind != W::month) return 0;
    std::size_t end = index + 1;
    if (tokens_.is(end, U'.') && tokens_.glued(end)) ++end;
    int year = reference_.now.year;
    if (const std::size_t stop = monthDates_.yearEnd(end, year)) {
        end = stop;
    } else {
        rolls = true;
    }
    first = *dayOf(year, token.value, 1);
    return end;
}

/// "first Monday of March", "last friday in october", "last day of october 2015".
NamedDay DayReader::readNthOfMonth(std::size_t index) const {
    const bool last = tokens_.is(index, W::last);
    int nth = 0;
    bool ordinal = last;
    const std::size_t stop = last ? index + 1 : monthDates_.dayNumberEnd(index, nth, ordinal);
    if (stop == 0 || !ordinal || (!last && nth > 31)) return {};
    const DateToken& what = tokens_[stop];
    const bool day = what.kind == W::unit && what.value == static_cast<int>(TimeUnit::day);
    if (!day && (what.kind != W::weekday || (!last && nth > 5))) return {};
    if (!tokens_.is(stop + 1, W::of) && !tokens_.is(stop + 1, W::in)) return {};
    sys_days first{};
    bool rolls = false;
    const std::size_t end = monthEnd(stop + 2, first, rolls);
    if (end == 0) return {};
    for (int attempt = 0; attempt < 2; ++attempt) {
        const sys_days finish = lastOfMonth(first);
        sys_days found{};
        if (day) {
            found = last ? finish : first + days(nth - 1);
        } else if (last) {
            found = finish - days((weekdayOf(finish) - what.value + 7) % 7);
        } else {
            found = first + days((what.value - weekdayOf(first) + 7) % 7 + 7 * (nth - 1));
        }
        if (found > finish) return {};
        if (!rolls || found >= reference_.today) return at(found, end, Kind::ordinal);
        first = monthsLater(first, 12);
    }
    return {};
}

/// "20th of next month", "the 15th": the next day of that number where no month is named.
NamedDay DayReader::readDayOfMonth(std::size_t index) const {
    int number = 0;
    bool ordinal = false;
    const std::size_t stop = monthDates_.dayNumberEnd(index, number, ordinal);
    if (stop == 0) return {};
    if (tokens_.is(stop, W::of)) {
        sys_days first{};
        bool rolls = false;
        const std::size_t end = monthEnd(stop + 1, first, rolls);
        const sys_days day = first + days(number - 1);
        if (end == 0 || day > lastOfMonth(first)) return {};
        return at(day, end, Kind::ordinal);
    }
    if (!ordinal || !tokens_.is(index, W::number)) return {};
    sys_days first = firstOfMonth(reference_.today);
    for (int months = 0; months < 3; ++months, first = monthsLater(first, 1)) {
        const sys_days day = first + days(number - 1);
        if (day > lastOfMonth(first) || day < reference_.today) continue;
        NamedDay date = at(day, stop, Kind::dayOfMonth);
        date.weak = true;
        return date;
    }
    return {};
}

/// "end of the month", "end of next week".
NamedDay DayReader::readEndOf(std::size_t index) const {
    if (!tokens_.is(index + 1, W::of)) return {};
    const std::size_t stop = index + 2;
    sys_days first{};
    bool rolls = false;
    if (const std::size_t end = monthEnd(stop, first, rolls)) {
        if (rolls && lastOfMonth(first) < reference_.today) first = monthsLater(first, 12);
        return at(lastOfMonth(first), end, Kind::period);
    }
    if (tokens_.is(stop, W::unit) && tokens_[stop].value == static_cast<int>(TimeUnit::month))
        return at(lastOfMonth(first), stop + 1, Kind::period);
    const bool named = tokens_.is(stop, W::the) || isModifier(tokens_[stop].kind);
    const std::size_t unit = named ? stop + 1 : stop;
    if (!tokens_.is(unit, W::unit)) return {};
    const bool next = tokens_.is(stop, W::next) || tokens_.is(stop, W::coming);
    if (tokens_.is(stop, W::last) || tokens_.is(stop, W::past)) return {};
    switch (static_cast<TimeUnit>(tokens_[unit].value)) {
    case TimeUnit::week: return at(reference_.monday() + days(next ? 13 : 6), unit + 1, Kind::period);
    case TimeUnit::year: {
        const auto day = dayOf(reference_.now.year + (next ? 1 : 0), 12, 31);
        return day ? at(*day, unit + 1, Kind::period) : NamedDay();
    }
    default: return {};
    }
}

/// "morning of the 15th of february"
NamedDay DayReader::readPartOf(std::size_t index) const {
    if (!tokens_.is(index + 1, W::of)) return {};
    // "morning of the morning of ..." must not nest.
    if (tokens_.is(tokens_.is(index + 2, W::the) ? index + 3 : index + 2, W::dayPart)) return {};
    NamedDay date = readPlain(index + 2);
    if (!date || date.part || date.kind == Kind::monthOnly) return {};
    date.part = static_cast<DayPart>(tokens_[index].value);
    date.weak = false;
    return date;
}
} // namespace snipwren
