#include "parsing/dates/ClockReader.h"

namespace snipwren {
using W = DateWord;

void applyDayPart(ClockTime& clock, DayPart part) {
    if (clock.halfKnown || clock.hour > 12) return;
    clock.halfKnown = true;
    switch (part) {
    case DayPart::morning:
        if (clock.hour == 12) clock.hour = 0;
        break;
    case DayPart::afternoon:
    case DayPart::evening:
        if (clock.hour < 12) clock.hour += 12;
        break;
    case DayPart::night:
    case DayPart::tonight:
        if (clock.hour == 12) {
            clock.hour = 0;
            clock.dayShift = 1;
        } else if (clock.hour >= 5) {
            clock.hour += 12;
        } else if (part == DayPart::tonight) {
            clock.dayShift = 1; // Tonight at 2 comes after midnight.
        }
        break;
    }
}

ClockTime ClockReader::read(std::size_t index, Place place) const {
    const bool besideDay = place != Place::alone;
    std::size_t at = index;
    bool led = false;
    bool between = false;
    if (tokens_.is(at, W::at) || tokens_.is(at, U'@')) {
        led = true;
        ++at;
        if (tokens_.is(at, W::around)) ++at;
    } else if (tokens_.is(at, W::around)) {
        ++at;
        led = besideDay;
    } else if (tokens_.is(at, W::from) || tokens_.is(at, W::between)) {
        between = tokens_.is(at, W::between);
        led = besideDay;
        ++at;
        if (!between && tokens_.is(at, W::now)) return {};
    } else if (besideDay
               && (tokens_.is(at, W::after) || tokens_.is(at, W::before) || tokens_.is(at, W::by)
                   || tokens_.is(at, W::through) || tokens_.is(at, W::since))) {
        ++at;
    }
    ClockTime clock = readCore(at, led);
    if (!clock) return {};
    if (place != Place::behindDate) readRange(clock, between);
    // Outside a range these words only lead to the time and stay in the text.
    if (!besideDay && !clock.isRange && (tokens_.is(index, W::from) || tokens_.is(index, W::between))) return {};
    if (!clock.halfKnown) readTrailingPart(clock);
    if (clock.bare && !clock.isRange) {
        if (!led && place != Place::beforeTonight) return {};
        if (!besideDay && !isBareHourPlausible(clock.end)) return {};
        // "at one point", "at two places"
        if (!besideDay && tokens_.is(clock.end - 1, W::cardinal) && tokens_.is(clock.end, W::plain)) return {};
    }
    readZone(clock);
    // "3pm approximately"
    if (tokens_.is(clock.end, W::around) && tokens_.is(clock.end + 1, W::end)) ++clock.end;
    return clock;
}

ClockTime ClockReader::readCore(std::size_t index, bool led) const {
    const DateToken& token = tokens_[index];
    switch (token.kind) {
    case W::noon:
    case W::midnight: {
        ClockTime clock;
        clock.end = index + 1;
        clock.hour = token.kind == W::noon ? 12 : 0;
        clock.isMidnight = token.kind == W::midnight;
        clock.halfKnown = clock.named = true;
        return clock;
    }
    case W::half:
    case W::quarter:
    case W::article: return readPastOrTo(index, led);
    case W::number:
    case W::cardinal:
        if (token.value == 12 && (tokens_.is(index + 1, W::noon) || tokens_.is(index + 1, W::midnight)))
            return readCore(index + 1, led);
        if (const ClockTime clock = readPastOrTo(index, led)) return clock;
        return readHour(index, led);
    default: return {};
    }
}

/// "half past six", "a quarter to 6pm", "15 past noon", "half seven" (British for 7:30).
ClockTime ClockReader::readPastOrTo(std::size_t index, bool led) const {
    std::size_t at = index;
    if (tokens_.is(at, W::article)) ++at;
    const DateToken& first = tokens_[at];
    int minutes = 0;
    bool spelled = true;
    if (first.kind == W::half) {
        minutes = 30;
    } else if (first.kind == W::quarter) {
        minutes = 15;
    } else if (at == index && (first.kind == W::number || first.kind == W::cardinal) && first.value < 60) {
        minutes = first.value;
        spelled = first.kind == W::cardinal;
        if (first.kind == W::number && first.digits > 2) return {};
    } else {
        return {};
    }
    ++at;
    if (tokens_.is(at, W::cardinal) && first.kind == W::cardinal && first.value >= 20 && tokens_[at].value < 10)
        minutes += tokens_[at++].value;
    if (tokens_.is(at, W::unit) && tokens_[at].value == static_cast<int>(TimeUnit::minute)
        && (first.kind == W::number || first.kind == W::cardinal)) {
        ++at;
        spelled = true;
    }
    const bool past = tokens_.is(at, W::past);
    const bool to = tokens_.is(at, W::to) && spelled; // "2 to 3pm" is a range.
    if (!past && !to) {
        if (first.kind != W::half) return {};
        ClockTime clock = readHour(at, true);
        if (!clock || clock.minute != 0 || clock.second != 0) return {};
        clock.minute = 30;
        ClockTime evening = clock;
        readTrailingPart(evening);
        if (!led && !clock.named && !evening.halfKnown && !tokens_.is(clock.end, W::tonight)) return {};
        clock.bare = false;
        return clock;
    }
    const W hour = tokens_[at + 1].kind; // Not another "half past", which could go on for ever.
    ClockTime clock = hour == W::noon || hour == W::midnight ? readCore(at + 1, true) : readHour(at + 1, true);
    if (!clock || clock.minute != 0 || clock.second != 0) return {};
    if (to && !led && !clock.named && first.kind != W::quarter) return {};
    if (past) {
        clock.minute = minutes;
    } else {
        clock.minute = (60 - minutes) % 60;
        clock.hour = (clock.hour + 23) % 24;
        clock.isMidnight = false;
    }
    clock.bare = false;
    clock.named = true;
    return clock;
}

ClockTime ClockReader::readHour(std::size_t index, bool led) const {
    ClockTime clock = tokens_.is(index, W::number) ? readDigits(index, led) : readWords(index);
    if (clock) clock = finishHour(clock);
    return clock;
}

ClockTime ClockReader::readDigits(std::size_t index, bool led) const {
    const DateToken& hour = tokens_[index];
    ClockTime clock;
    const auto glued = [&](std::size_t at, char32_t symbol) {
        return tokens_.is(at, symbol) && tokens_.glued(at) && tokens_.is(at + 1, W::number) && tokens_.glued(at + 1);
    };
    if (hour.digits == 4 && !glued(index + 1, U':')) {
        const bool hours =
            tokens_.is(index + 1, W::unit) && tokens_[index + 1].value == static_cast<int>(TimeUnit::hour);
        if (!led && !hours) return {};
        clock.hour = hour.value / 100;
        clock.minute = hour.value % 100;
        if (clock.hour > 23 || clock.minute > 59) return {};
        clock.halfKnown = true;
        clock.end = index + (hours ? 2 : 1);
        return clock;
    }
    if (hour.digits > 2 || hour.value > 23) return {};
    clock.hour = hour.value;
    clock.bare = true;
    clock.end = index + 1;
    if (glued(index + 1, U':')) {
        const DateToken& minute = tokens_[index + 2];
        if (minute.digits != 2 || minute.value > 59) return {};
        clock.minute = minute.value;
        clock.bare = false;
        clock.end = index + 3;
        if (glued(clock.end, U':')) {
            const DateToken& second = tokens_[clock.end + 1];
            if (second.digits != 2 || second.value > 59) return {};
            clock.second = second.value;
            clock.end += 2;
            if (glued(clock.end, U'.')) clock.end += 2; // A fraction of the second.
        }
        if (hour.digits == 2 && hour.value < 10) clock.halfKnown = true; // "09:00" is how the 24-hour clock writes it.
    } else if (glued(index + 1, U'.')) {
        int half = 0;
        const DateToken& minute = tokens_[index + 2];
        if (minute.digits != 2 || minute.value > 59 || meridiemEnd(index + 3, half) == 0) return {};
        clock.minute = minute.value;
        clock.bare = false;
        clock.end = index + 3;
    }
    if (clock.hour > 12 || clock.hour == 0) clock.halfKnown = true;
    return clock;
}

/// "six", "seven thirty", "six fifteen", "nine oh five".
ClockTime ClockReader::readWords(std::size_t index) const {
    const DateToken& hour = tokens_[index];
    if (hour.kind != W::cardinal || hour.value < 1 || hour.value > 12) return {};
    ClockTime clock;
    clock.hour = hour.value;
    clock.bare = true;
    clock.end = index + 1;
    const DateToken& tens = tokens_[index + 1];
    if (tens.kind == W::cardinal && tens.value >= 10 && tens.value < 60) {
        clock.minute = tens.value;
        clock.end = index + 2;
        const DateToken& ones = tokens_[index + 2];
        if (tens.value >= 20 && ones.kind == W::cardinal && ones.value < 10) {
            clock.minute += ones.value;
            clock.end = index + 3;
        }
    }
    return clock;
}

/// Takes "o'clock", "ish" and the meridiem that follow the hour.
ClockTime ClockReader::finishHour(ClockTime clock) const {
    std::size_t at = clock.end;
    if (tokens_.is(at, W::clock) && tokens_[at].value == 1) {
        clock.end = ++at;
        clock.bare = false;
        clock.named = true;
    } else if (tokens_.is(at, W::clockParticle)) {
        const std::size_t word = tokens_.isApostrophe(at + 1) ? at + 2 : at + 1;
        if (tokens_.is(word, W::clock)) {
            clock.end = at = word + 1;
            clock.bare = false;
            clock.named = true;
        }
    }
    if (tokens_.is(at, W::ish) || (tokens_.isDash(at) && tokens_.is(at + 1, W::ish))) {
        clock.end = at = at + (tokens_.is(at, W::ish) ? 1 : 2);
        clock.named = true;
        clock.bare = false;
    }
    int half = 0;
    if (const std::size_t end = meridiemEnd(at, half)) {
        const bool letterOnly = end == at + 1 && tokens_[at].end - tokens_[at].start == 1;
        if (clock.hour > 12) {
            // "15:00 pm" is odd but clear; "13pm" is a slip that could mean anything.
            if (clock.bare || half == 0) return {};
        } else {
            if (clock.hour == 0 && (half == 1 || clock.bare)) return {};
            clock.hour = clock.hour % 12 + half * 12;
        }
        clock.halfKnown = true;
        // A lone "5p" can be a price or a label; it needs what a bare number needs.
        if (!letterOnly) clock.bare = false;
        clock.named = !letterOnly || !clock.bare;
        clock.end = end;
    }
    return clock;
}

std::size_t ClockReader::meridiemEnd(std::size_t index, int& half) const {
    const DateToken& token = tokens_[index];
    const bool a = token.kind == W::article && token.end - token.start == 1;
    if (token.kind != W::meridiem && !a) return 0;
    half = a ? 0 : token.value;
    if (token.end - token.start > 1) return index + 1;
    const bool dotted = tokens_.is(index + 1, U'.') && tokens_.glued(index + 1);
    const std::size_t m = index + (dotted ? 2 : 1);
    const DateToken& second = tokens_[m];
    const std::string_view letter = tokens_.text(second);
    if ((letter == "m" || letter == "M") && (dotted == tokens_.glued(m))) {
        return dotted && tokens_.is(m + 1, U'.') && tokens_.glued(m + 1) ? m + 2 : m + 1;
    }
    return tokens_.glued(index) ? index + 1 : 0; // "3p", "3:18a".
}

/// "2-3pm", "from 9am to 5pm", "3:30 to six p.m.": the start stays, with the half of the day that the end names.
void ClockReader::readRange(ClockTime& clock, bool between) const {
    const std::size_t at = clock.end;
    const bool dash = tokens_.isDash(at);
    if (!dash && !tokens_.is(at, W::to) && !tokens_.is(at, W::through) && !(between && tokens_.is(at, W::conjunction)))
        return;
    if (tokens_[at].newLine) return;
    ClockTime finish;
    const DateToken& next = tokens_[at + 1];
    if (next.kind == W::noon || next.kind == W::midnight) {
        finish = readCore(at + 1, true);
    } else {
        finish = readHour(at + 1, false);
    }
    if (!finish || next.newLine) return;
    if (finish.bare && !finish.halfKnown) {
        // "9-5" is a score until a colon or a meridiem says otherwise, "3pm - 2 tickets" two things.
        const bool glued = dash && tokens_.glued(at) && tokens_.glued(at + 1);
        const W follower = tokens_[finish.end].kind;
        if (clock.bare || (!glued && (follower == W::plain || follower == W::measure))) return;
    } else if (clock.bare && finish.bare) {
        return;
    }
    if (tokens_.isDash(finish.end) && tokens_.glued(finish.end) && tokens_.is(finish.end + 1, W::number)) return;
    if (!clock.halfKnown && finish.halfKnown && finish.hour <= 23 && !finish.isMidnight) {
        int hour = clock.hour % 12 + (finish.hour >= 12 ? 12 : 0);
        if (hour * 60 + clock.minute > finish.hour * 60 + finish.minute) hour = hour >= 12 ? hour - 12 : hour + 12;
        if (hour < 24) clock.hour = hour;
        clock.halfKnown = true;
    }
    clock.named |= finish.named;
    clock.bare = false;
    clock.isRange = true;
    clock.end = finish.end;
}

/// "in the morning", "at night".
void ClockReader::readTrailingPart(ClockTime& clock) const {
    const std::size_t at = clock.end;
    std::size_t part = 0;
    if (tokens_.is(at, W::in) && tokens_.is(at + 1, W::the)) part = at + 2;
    if (tokens_.is(at, W::at)) part = at + 1;
    if (part == 0 || !tokens_.is(part, W::dayPart)) return;
    applyDayPart(clock, static_cast<DayPart>(tokens_[part].value));
    clock.halfKnown = clock.named = true;
    clock.bare = false;
    clock.end = part + 1;
}

void ClockReader::readZone(ClockTime& clock) const {
    const DateToken& token = tokens_[clock.end];
    if (token.kind != W::zone || token.newLine) return;
    clock.zoneMinutes = token.value;
    clock.americanSummerTime = (token.flags & DateWordFlag::americanSummerTime) != 0;
    ++clock.end;
    // "UTC+2", "GMT-05:30".
    const std::size_t sign = clock.end;
    const bool minus = tokens_.isDash(sign);
    if (token.value != 0 || !tokens_.glued(sign) || (!minus && !tokens_.is(sign, U'+'))) return;
    const DateToken& hours = tokens_[sign + 1];
    if (hours.kind != W::number || hours.digits > 2 || hours.value > 14 || !tokens_.glued(sign + 1)) return;
    int minutes = hours.value * 60;
    clock.end = sign + 2;
    if (tokens_.is(clock.end, U':') && tokens_.is(clock.end + 1, W::number) && tokens_[clock.end + 1].digits == 2
        && tokens_[clock.end + 1].value < 60) {
        minutes += tokens_[clock.end + 1].value;
        clock.end += 2;
    }
    clock.zoneMinutes = minus ? -minutes : minutes;
}

/// "at 5", "at 3 sharp", "at 8 for dinner" are times; "at 3 locations", "at 12 Oak Lane", "at 10 - 10.1" are not.
bool ClockReader::isBareHourPlausible(std::size_t next) const {
    const DateToken& token = tokens_[next];
    if (token.newLine) return true;
    switch (token.kind) {
    case W::plain: {
        const std::string_view word = tokens_.text(token);
        return !token.capital && word.back() != 's';
    }
    case W::measure:
    case W::number:
    case W::cardinal:
    case W::unit:
    case W::ordinalSuffix:
    case W::half:
    case W::pronoun: return false;
    case W::symbol:
        return !(tokens_.is(next + 1, W::number)
                 && (tokens_.isDash(next) || tokens_.is(next, U'.') || tokens_.is(next, U'/') || tokens_.is(next, U',')
                     || tokens_.is(next, U':')))
               && token.value != U'%' && token.value != U'$' && token.value != 0xB0;
    default: return true;
    }
}
} // namespace snipwren
