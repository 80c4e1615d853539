#include "parsing/dates/DatePhraseReader.h"

namespace snipwren {
using W = DateWord;
using Kind = NamedDay::Kind;
using Place = ClockReader::Place;

namespace {
/// Whether a number can mean anything with this behind it; most numbers in a text are settled here.
bool canFollowNumber(W kind) {
    return kind != W::plain && kind != W::number && kind != W::end && kind != W::label && kind != W::measure
           && kind != W::pronoun && kind != W::copula && kind != W::with;
}

/// Words after which even an everyday word is the date it could be: "by sat", "until may".
bool announcesDate(W kind) {
    return kind == W::on || kind == W::by || kind == W::through || kind == W::due || kind == W::since || kind == W::in
           || kind == W::before || kind == W::after;
}

bool isSeparator(const DateTokens& tokens, std::size_t index) {
    return tokens.is(index, U',') || tokens.is(index, U'\u2219') || tokens.is(index, U'\u00B7')
           || tokens.is(index, U'\u2022') || tokens.is(index, U'|');
}
} // namespace

bool DatePhraseReader::canBegin(W kind) {
    switch (kind) {
    case W::end:
    case W::plain:
    case W::meridiem:
    case W::zone:
    case W::ordinalSuffix:
    case W::on:
    case W::by:
    case W::forward:
    case W::to:
    case W::through:
    case W::conjunction:
    case W::after:
    case W::before:
    case W::of:
    case W::since:
    case W::due:
    case W::ago:
    case W::back:
    case W::now:
    case W::clock:
    case W::clockParticle:
    case W::ish:
    case W::with:
    case W::label:
    case W::measure:
    case W::pronoun:
    case W::copula: return false;
    default: return true;
    }
}

std::optional<DatePhrase> DatePhraseReader::read(std::size_t index) const {
    if (tokens_.is(index, W::number) && !canFollowNumber(tokens_[index + 1].kind)) return std::nullopt;
    if (!beginsCleanly(index)) return std::nullopt;
    if (const auto offset = readOffset(index)) return offset;
    Parts parts = readParts(index);
    if (parts.end == 0) return std::nullopt;
    const bool range = takeRange(parts);
    if (!isPlausible(index, parts, range)) return std::nullopt;
    std::size_t begin = index;
    // The word that opens a range belongs to it, so that it does not stay behind in a title.
    const DateToken& opener = tokens_.before(index);
    if (range && (opener.kind == W::from || opener.kind == W::between)) --begin;
    return resolved(begin, parts);
}

/// Moments counted from the reference: "in 20 minutes", "an hour ago", "2 hours from now", "right now".
std::optional<DatePhrase> DatePhraseReader::readOffset(std::size_t index) const {
    DatePhrase phrase;
    phrase.begin = index;
    phrase.hasClock = true;
    if (tokens_.is(index, W::right)) {
        if (!tokens_.is(index + 1, W::now)) return std::nullopt;
        phrase.end = index + 2;
        phrase.offset = 0;
        return phrase;
    }
    std::size_t at = index;
    const bool plus = tokens_.is(at, U'+');
    const bool forward = tokens_.is(at, W::in) || tokens_.is(at, W::within) || plus;
    if (forward) {
        ++at;
        if (tokens_.is(at, W::around)) ++at;
        if (tokens_.is(at, W::the)) ++at;
        if (tokens_.is(at, W::next)) ++at;
        if (plus && !tokens_.glued(at)) return std::nullopt;
    }
    const TimeSpan span = spans_.read(at);
    if (!span || !span.exact) return std::nullopt;
    int sign = 1;
    phrase.end = span.end;
    switch (tokens_[span.end].kind) {
    case W::ago:
    case W::back:
        if (forward) break;
        sign = -1;
        ++phrase.end;
        break;
    case W::later: ++phrase.end; break;
    case W::from:
        if (tokens_.is(span.end + 1, W::now)) phrase.end += 2;
        break;
    default: break;
    }
    if (!forward && phrase.end == span.end) return std::nullopt;
    if (!endsCleanly(phrase.end)) return std::nullopt;
    phrase.offset = sign * span.seconds;
    return phrase;
}

/// "in 3 weeks", "within 10 day", "+2 days".
NamedDay DatePhraseReader::readForward(std::size_t index) const {
    std::size_t at = index + 1;
    if (tokens_.is(index, U'+')) {
        if (!tokens_.glued(at)) return {};
    } else {
        if (tokens_.is(at, W::around)) ++at;
        if (tokens_.is(at, W::the)) ++at;
        if (tokens_.is(at, W::next)) ++at;
    }
    const TimeSpan span = spans_.read(at);
    if (!span || span.exact) return {};
    const auto day = moved(reference_.today, span, 1);
    if (!day) return {};
    NamedDay date;
    date.kind = Kind::span;
    date.end = span.end;
    date.day = *day;
    if (tokens_.is(span.end, W::from) && tokens_.is(span.end + 1, W::now)) date.end += 2;
    return date;
}

DatePhraseReader::Parts DatePhraseReader::readParts(std::size_t index) const {
    Parts parts;
    const DateToken& token = tokens_[index];
    const bool forward = token.kind == W::in || token.kind == W::within || tokens_.is(index, U'+');
    parts.day = forward ? readForward(index) : days_.read(index);
    if (parts.day) {
        parts.end = parts.day.end;
        takePart(parts.day);
        parts.end = parts.day.end;
        if (parts.day.clock) {
            parts.clock = parts.day.clock;
        } else {
            takeClock(parts);
        }
        return parts;
    }
    parts.clock = clocks_.read(index, Place::alone);
    if (!parts.clock && (token.kind == W::number || token.kind == W::cardinal || token.kind == W::around)) {
        const ClockTime bare = clocks_.read(index, Place::beforeTonight);
        const bool thisPart = bare && tokens_.is(bare.end, W::current) && tokens_.is(bare.end + 1, W::dayPart);
        // "swing by around 7p", "11 tonight", "8 this evening".
        if (bare
            && (tokens_.is(bare.end, W::tonight) || thisPart
                || (token.kind == W::around && tokens_.is(bare.end - 1, W::meridiem))))
            parts.clock = bare;
    }
    if (parts.clock) {
        parts.end = parts.clock.end;
        takeDay(parts);
    }
    return parts;
}

/// "tomorrow morning", "15 of february in the morning", "friday night".
void DatePhraseReader::takePart(NamedDay& day) const {
    if (day.part || day.clock || day.kind == Kind::monthOnly) return;
    std::size_t at = day.end;
    if (tokens_.is(at, W::in) && tokens_.is(at + 1, W::the)) at += 2;
    if (tokens_.is(at, W::at) && tokens_.is(at + 1, W::dayPart)
        && tokens_[at + 1].value == static_cast<int>(DayPart::night))
        ++at;
    if (!tokens_.is(at, W::dayPart) || tokens_[at].newLine) return;
    day.part = static_cast<DayPart>(tokens_[at].value);
    day.end = at + 1;
}

void DatePhraseReader::takeClock(Parts& parts) const {
    if (parts.day.kind == Kind::monthOnly) return;
    std::size_t at = parts.day.end;
    if (tokens_[at].newLine) return;
    const bool dash = tokens_.isDash(at) && !tokens_.glued(at);
    if (isSeparator(tokens_, at) || dash) ++at;
    if (tokens_[at].newLine) return;
    const ClockTime clock = clocks_.read(at, Place::besideDay);
    if (!clock || !endsCleanly(clock.end)) return;
    if (dash && !clock.named) return;
    parts.clock = clock;
    parts.end = clock.end;
    int year = 0;
    if (!parts.day.yearless || parts.day.kind != Kind::monthDay || tokens_.is(clock.end, U',')) return;
    if (const std::size_t end = monthDates_.yearEnd(clock.end, year)) { // "Thu Oct 26 11:00:09 2023"
        const std::chrono::year_month_day date(parts.day.day);
        if (const auto day = dayOf(year, static_cast<int>(static_cast<unsigned>(date.month())),
                                   static_cast<int>(static_cast<unsigned>(date.day())))) {
            parts.day.day = *day;
            parts.end = end;
        }
    }
}

void DatePhraseReader::takeDay(Parts& parts) const {
    std::size_t at = parts.clock.end;
    if (tokens_[at].newLine) return;
    if (isSeparator(tokens_, at)) ++at;
    NamedDay day;
    if (tokens_.is(at, W::in) || tokens_.is(at, W::within)) {
        day = readForward(at);
    } else {
        if (tokens_.is(at, W::on) || tokens_.is(at, W::of)) ++at;
        if (tokens_[at].newLine || !canBegin(tokens_[at].kind)) return;
        day = days_.read(at);
        if (day) takePart(day);
    }
    if (!day || day.kind == Kind::monthOnly || day.clock || !endsCleanly(day.end)) return;
    Parts both = parts;
    both.day = day;
    both.end = day.end;
    if (day.kind == Kind::dayOfMonth && !isWeakDayPlausible(at, both, false)) return;
    parts = both;
}

/// "Aug 10 to Nov 12", "Monday to Friday", "2015-03-28 17:00/2015-03-29 21:00": the start is the date.
bool DatePhraseReader::takeRange(Parts& parts) const {
    if (!parts.day || parts.day.kind == Kind::monthOnly || parts.day.isRange) return parts.day.isRange;
    const std::size_t at = parts.end;
    const bool dash = tokens_.isDash(at);
    const bool slash = tokens_.is(at, U'/') && parts.day.kind == Kind::iso;
    if ((!dash && !slash && !tokens_.is(at, W::to) && !tokens_.is(at, W::through)) || tokens_[at].newLine) return false;
    std::size_t start = at + 1;
    if (tokens_.is(start, W::on)) ++start;
    if (tokens_[start].newLine || !canBegin(tokens_[start].kind)) return false;
    const Parts finish = readParts(start);
    if (finish.end == 0 || !finish.day || finish.day.kind == Kind::monthOnly || !endsCleanly(finish.end)) return false;
    if (dash && finish.day.kind != parts.day.kind) return false;
    if (parts.day.yearless && !finish.day.yearless && finish.day.kind == parts.day.kind) {
        const std::chrono::year_month_day first(parts.day.day);
        int year = static_cast<int>(std::chrono::year_month_day(finish.day.day).year());
        const auto inYear = [&](int y) {
            return dayOf(y, static_cast<int>(static_cast<unsigned>(first.month())),
                         static_cast<int>(static_cast<unsigned>(first.day())));
        };
        auto day = inYear(year);
        if (day && *day > finish.day.day) day = inYear(--year); // "Dec 27 to Jan 3, 2027"
        if (!day) return false;
        parts.day.day = *day;
    }
    parts.day.weak = false;
    parts.end = finish.end;
    return true;
}

bool DatePhraseReader::isPlausible(std::size_t begin, const Parts& parts, bool range) const {
    if (!endsCleanly(parts.end)) return false;
    const W previous = tokens_.before(begin).kind;
    if (!parts.day) {
        const ClockTime& clock = parts.clock;
        if (clock.named || tokens_.is(begin, W::at) || tokens_.is(begin, U'@')) return true;
        if (previous == W::label || previous == W::of) return false; // "John 3:16", "odds of 3:10"
        const DateToken& before = tokens_.before(begin);
        const bool lineStart = begin <= 1 || before.newLine;
        const bool name = before.kind == W::plain && before.capital && !before.allCapital && !lineStart;
        return clock.halfKnown || !name || tokens_[parts.end].kind == W::end;
    }
    if (parts.day.kind == Kind::numeric && !parts.clock && previous == W::label) return false;
    // "Black Friday deals" has been refused as a holiday already.
    if (parts.day.kind == Kind::weekday && previous == W::holiday && tokens_.before(begin).value == 1) return false;
    if (parts.day.weak) return isWeakDayPlausible(begin, parts, range);
    return true;
}

bool DatePhraseReader::isWeakDayPlausible(std::size_t begin, const Parts& parts, bool range) const {
    const DateToken& first = tokens_[begin];
    const DateToken& before = tokens_.before(begin);
    const DateToken& after = tokens_[parts.end];
    const bool announced = announcesDate(before.kind);
    const bool atStart = begin == 0;
    const bool atEnd = after.kind == W::end
                       || (after.kind == W::symbol && tokens_[parts.end + 1].kind == W::end && after.value != '%');
    switch (parts.day.kind) {
    case Kind::monthOnly: return announced || (atStart && atEnd);
    case Kind::holiday: return announced || parts.clock || after.kind != W::plain || before.kind == W::forward || range;
    case Kind::dayOfMonth: {
        // "by the 15th", not "on the 3rd floor".
        const DateToken& beforeThe = first.kind == W::the ? before : tokens_.before(begin);
        const bool led = first.kind == W::the || announcesDate(beforeThe.kind) || parts.clock;
        return led && after.kind != W::plain && after.kind != W::measure && after.kind != W::unit
               && after.kind != W::half && after.kind != W::quarter && after.kind != W::weekday
               && after.kind != W::holiday && !tokens_.isDash(parts.end)
               && (announcesDate(beforeThe.kind) || beforeThe.kind == W::forward || atEnd || parts.clock);
    }
    case Kind::numeric:
        if (parts.clock || range) return true;
        if (after.kind == W::plain || after.kind == W::measure || after.kind == W::label || after.kind == W::of
            || after.kind == W::unit)
            return announced && after.kind == W::plain && !atEnd;
        return announced || before.kind == W::forward || before.kind == W::copula || before.kind == W::from
               || (atStart && !tokens_.is(parts.end, W::measure)) || (atEnd && before.kind != W::label);
    case Kind::monthDay: return before.kind != W::pronoun && after.kind != W::measure;
    case Kind::weekday: {
        if (parts.clock || parts.day.part || range || announced) return before.kind != W::the;
        if (tokens_.isDash(parts.end) && tokens_.glued(parts.end)) return false; // "sun-dried"
        const bool sentenceStart = atStart || tokens_.is(begin - 1, U'.') || tokens_.is(begin - 1, U'!')
                                   || tokens_.is(begin - 1, U'?') || first.newLine;
        const bool word = first.value == 0 || first.value == 6 || first.value == 1; // sun, sat, mon
        if (before.kind == W::the || before.kind == W::article || before.kind == W::pronoun) return false;
        if (atEnd) return true;
        if (sentenceStart)
            return after.kind == W::symbol || (!word && after.kind != W::the && after.kind != W::article);
        return first.capital && !first.allCapital && !after.capital;
    }
    default: return true;
    }
}

/// Nothing that a phrase may be torn out of: "$5", "A4", "file-2026", "v1.2", "x/3".
bool DatePhraseReader::beginsCleanly(std::size_t begin) const {
    const DateToken& token = tokens_[begin];
    const DateToken& before = tokens_.before(begin);
    if (begin == 0) return true;
    const bool digits = token.kind == W::number;
    if (!tokens_.glued(begin)) {
        // "$ 5", "No. 3"
        return !(digits && before.kind == W::symbol
                 && (before.value == '$' || before.value == '#' || before.value == 0x20AC || before.value == 0xA3));
    }
    if (before.kind != W::symbol) return tokens_.is(begin, U'@') && before.kind != W::number;
    if (before.value >= 0x2000 && before.value != 0x20AC) return true; // Typographic quotes, dashes, emoji.
    switch (before.value) {
    case '(':
    case '[':
    case '{':
    case '<':
    case '>':
    case '"':
    case '\'':
    case ';':
    case '!':
    case '?':
    case '*':
    case '~':
    case '|':
    case '=':
    case '&':
    case '`': return true;
    case ':': return begin < 2 || !(digits && tokens_.is(begin - 2, W::number));
    case ',': return begin < 2 || !digits || !tokens_.is(begin - 2, W::number);
    case '/': return !digits && !(begin >= 2 && tokens_.glued(begin - 1) && tokens_.is(begin - 2, U'/'));
    case '-': return begin < 2 || !tokens_.glued(begin - 1);
    case '.': return !digits && begin >= 2 && tokens_.glued(begin - 1) && token.capital;
    case '_': return begin >= 2 && !tokens_.glued(begin - 1);
    default: return false;
    }
}

bool DatePhraseReader::endsCleanly(std::size_t end) const {
    const DateToken& after = tokens_[end];
    if (after.kind == W::end || after.spaced) return true;
    if (after.kind != W::symbol) return false;
    const DateToken& last = tokens_.before(end);
    const DateToken& next = tokens_[end + 1];
    const bool continued = next.kind != W::end && !next.spaced && next.kind != W::symbol;
    switch (after.value) {
    case '%':
    case '$':
    case '_':
    case '@':
    case 0xB0:
    case 0x20AC: return false;
    case '/':
        if (continued && next.kind == W::number && next.digits == 4) return true; // A range of ISO dates.
        [[fallthrough]];
    case '.':
    case ':': return !continued || (last.kind != W::number && next.kind != W::number && after.value == ':');
    case ',': return !(continued && last.kind == W::number && next.kind == W::number);
    case '-':
        // "3-5" may go on as a number; "friday-ish" is still friday.
        return !continued || (last.kind != W::number && next.kind != W::number);
    default: return true;
    }
}

DatePhrase DatePhraseReader::resolved(std::size_t begin, const Parts& parts) const {
    DatePhrase phrase;
    phrase.begin = begin;
    phrase.end = parts.end;
    phrase.day = parts.day ? parts.day.day : reference_.today;
    ClockTime clock = parts.clock;
    if (!clock) {
        if (!parts.day.part) return phrase;
        constexpr int hours[] = {9, 15, 18, 20, 19}; // In the order of DayPart.
        phrase.hour = hours[static_cast<int>(*parts.day.part)];
        phrase.hasClock = *parts.day.part == DayPart::tonight;
        return phrase;
    }
    phrase.hasClock = true;
    if (parts.day.part) applyDayPart(clock, *parts.day.part);
    if (!parts.day) {
        // Alone, an hour that could be either half of the day is the waking one.
        if (!clock.halfKnown && clock.hour >= 1 && clock.hour <= 6) clock.hour += 12;
        if (clock.isMidnight) clock.dayShift = 1; // The coming one.
    } else if (clock.isMidnight && parts.day.part == DayPart::tonight) {
        clock.dayShift = 1;
    }
    phrase.day += std::chrono::days(clock.dayShift);
    phrase.hour = clock.hour;
    phrase.minute = clock.minute;
    phrase.second = clock.second;
    phrase.zoneMinutes = clock.zoneMinutes;
    phrase.americanSummerTime = clock.americanSummerTime;
    return phrase;
}
} // namespace snipwren
