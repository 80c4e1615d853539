#include "parsing/dates/CaptureDateParser.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>

#include "base/Text.h"
#include "parsing/TextScan.h"
#include "parsing/dates/DateDetector.h"

namespace snipwren {
namespace {
constexpr int maxDaysForward = 370; // A safety stop: a year and a little.

struct ByteRange {
    std::size_t start = 0;
    std::size_t end = 0;
};

struct SupplementalClockTime {
    int hour = 0;
    int minute = 0;
    ByteRange range;
};

bool isAscii(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

/// `\b(at|around|@)\s*\d+` in lower-cased text.
bool namesHourAfterPreposition(std::string_view text) {
    constexpr std::array<std::string_view, 3> words{"at", "around", "@"};
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != 'a' && text[at] != '@') continue;
        for (const std::string_view word : words) {
            if (text.substr(at, word.size()) != word || !scan::isWordBoundary(text, at)) continue;
            const std::size_t digit = scan::skipSpaces(text, at + word.size());
            if (scan::skipDigits(text, digit) != digit) return true;
        }
    }
    return false;
}

bool hasTimePatternInLowerCase(std::string_view text) {
    for (const std::string_view sign : {"am", "pm", ":", "clock", "noon", "midnight", "tonight"})
        if (text.find(sign) != std::string_view::npos) return true;
    return namesHourAfterPreposition(text);
}

/// The two ranges belong together when at most "at", "on", "," or "@" stands between them.
bool areAdjacent(const DateMatch& first, const DateMatch& second, std::string_view text) {
    const DateMatch& left = first.start <= second.start ? first : second;
    const DateMatch& right = first.start <= second.start ? second : first;
    if (right.start <= left.end) return true;
    const std::string between(trimmed(text.substr(left.end, right.start - left.end)));
    if (between.size() > 2) return false;
    const std::string lower = asciiLowercased(between);
    return lower.empty() || lower == "at" || lower == "on" || lower == "," || lower == "@";
}

/// `(am|pm|a\.m\.|p\.m\.)?\b` at `offset`: the end of the best reading, or none. `half` is 'a', 'p' or 0.
std::optional<std::size_t> meridiemThenBoundary(std::string_view text, std::size_t offset, char& half) {
    const auto letter = [&](std::size_t at) { return at < text.size() ? scan::asciiLower(text[at]) : '\0'; };
    half = letter(offset);
    if (half == 'a' || half == 'p') {
        if (letter(offset + 1) == 'm' && scan::isWordBoundary(text, offset + 2)) return offset + 2;
        if (letter(offset + 1) == '.' && letter(offset + 2) == 'm' && letter(offset + 3) == '.'
            && scan::isWordBoundary(text, offset + 4))
            return offset + 4;
    }
    half = 0;
    if (scan::isWordBoundary(text, offset)) return offset;
    return std::nullopt;
}

/// Every end that `\s*` can stop at is tried from the longest on, as the expression does.
std::optional<std::size_t> spacesMeridiemBoundary(std::string_view text, std::size_t offset, char& half) {
    std::size_t stop = scan::skipSpaces(text, offset);
    // Inside the run of white space there is neither a meridiem nor a boundary, only at its two ends.
    if (const auto end = meridiemThenBoundary(text, stop, half)) return end;
    half = 0;
    if (stop != offset && scan::isWordBoundary(text, offset)) return offset;
    return std::nullopt;
}

int asciiNumber(std::string_view digits) {
    int value = -1; // Digits of other scripts read as no number.
    const auto [rest, code] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return code == std::errc() && rest == digits.data() + digits.size() ? value : -1;
}

/// The match of `(\d{1,2})(?::(\d{2}))?\s*(am|pm|a\.m\.|p\.m\.)?\b` that begins at `offset`, as an hour and a minute.
struct ClockMatch {
    std::string_view hour;
    std::string_view minute;
    char half = 0;
    std::size_t end = 0;
};

std::optional<ClockMatch> clockMatchAt(std::string_view text, std::size_t offset) {
    std::size_t ends[2] = {offset, offset}; // After one digit, after two.
    std::size_t count = 0;
    for (std::size_t at = offset; count < 2 && at < text.size(); ++count) {
        std::size_t next = at;
        if (!scan::isDigit(nextScalar(text, next))) break;
        at = ends[count] = next;
    }
    for (; count > 0; --count) {
        const std::size_t hourEnd = ends[count - 1];
        ClockMatch match;
        match.hour = text.substr(offset, hourEnd - offset);
        if (hourEnd < text.size() && text[hourEnd] == ':') {
            std::size_t at = hourEnd + 1;
            int digits = 0;
            while (digits < 2 && at < text.size()) {
                std::size_t next = at;
                if (!scan::isDigit(nextScalar(text, next))) break;
                at = next;
                ++digits;
            }
            if (digits == 2) {
                if (const auto end = spacesMeridiemBoundary(text, at, match.half)) {
                    match.minute = text.substr(hourEnd + 1, at - hourEnd - 1);
                    match.end = *end;
                    return match;
                }
            }
        }
        if (const auto end = spacesMeridiemBoundary(text, hourEnd, match.half)) {
            match.end = *end;
            return match;
        }
    }
    return std::nullopt;
}

/// The first match of `(?i)\b(?:at\s+)?(\d{1,2})(?::(\d{2}))?\s*(am|pm|a\.m\.|p\.m\.)?\b`. A bare number of one or two
/// digits is an hour: for an alarm there is nothing else it could be wanted for.
std::optional<SupplementalClockTime> supplementalClockTime(std::string_view text) {
    for (std::size_t start = 0; start < text.size(); nextScalar(text, start)) {
        const char first = scan::asciiLower(text[start]);
        std::size_t number = start;
        if (first == 'a' && start + 2 < text.size() && scan::asciiLower(text[start + 1]) == 't') {
            number = scan::skipSpaces(text, start + 2);
            if (number == start + 2) continue;
        } else {
            std::size_t next = start;
            if (!scan::isDigit(nextScalar(text, next))) continue;
        }
        if (!scan::isWordBoundary(text, start)) continue;
        const auto match = clockMatchAt(text, number);
        if (!match) continue;
        SupplementalClockTime time;
        time.hour = asciiNumber(match->hour);
        time.minute = match->minute.empty() ? 0 : asciiNumber(match->minute);
        if (time.minute < 0) time.minute = 0; // Only a numeric minute counts.
        if (time.hour < 0) return std::nullopt;
        if (match->half == 'p' && time.hour < 12) time.hour += 12;
        if (match->half == 'a' && time.hour == 12) time.hour = 0;
        if (time.hour > 23 || time.minute > 59) return std::nullopt;
        time.range = {start, match->end};
        return time;
    }
    return std::nullopt;
}

struct Chosen {
    TimePoint date;
    bool timed = false;
    std::vector<ByteRange> ranges; // In text order.
};

bool isTimed(const DateMatch& match, std::string_view text) {
    return checkHasTimePattern(text.substr(match.start, match.end - match.start));
}

Chosen chosenMatch(const std::vector<DateMatch>& matches, std::string_view text, const Calendar& calendar) {
    const DateMatch* dateOnly = nullptr;
    const DateMatch* timed = nullptr;
    for (const DateMatch& match : matches) {
        const DateMatch*& slot = isTimed(match, text) ? timed : dateOnly;
        if (!slot) slot = &match;
    }
    const auto alone = [](const DateMatch& match, bool hasTime) {
        return Chosen{match.date, hasTime, {{match.start, match.end}}};
    };
    const DateMatch& first = matches.front();
    if (matches.size() > 1 && !dateOnly) return alone(*timed, true);
    if (matches.size() > 1 && timed && areAdjacent(*dateOnly, *timed, text)) {
        CivilTime civil = calendar.civil(dateOnly->date);
        const CivilTime time = calendar.civil(timed->date);
        civil.hour = time.hour;
        civil.minute = time.minute;
        civil.second = time.second;
        if (const auto date = calendar.resolve(civil)) {
            const ByteRange a{dateOnly->start, dateOnly->end};
            const ByteRange b{timed->start, timed->end};
            return a.start < b.start ? Chosen{*date, true, {a, b}} : Chosen{*date, true, {b, a}};
        }
    }
    return alone(first, &first == timed);
}

/// Adds one day until the moment is not before the reference, at most `maxDaysForward` times. A skipped clock time moves
/// all later days with it, so days may only be added together where no clock change lies between.
TimePoint addedDaysUntil(TimePoint date, TimePoint reference, const Calendar& calendar) {
    constexpr int stride = 21; // Shorter than any summer or Ramadan time.
    for (int added = 0; date < reference && added < maxDaysForward;) {
        int days = 1;
        if (added + stride <= maxDaysForward && date + std::chrono::hours(24 * stride) < reference) {
            const TimePoint later = date + std::chrono::hours(24 * stride);
            if (calendar.utcOffset(date) == calendar.utcOffset(later)) {
                date = later;
                added += stride;
                continue;
            }
            days = stride;
        }
        for (int i = 0; i < days; ++i, ++added) date = calendar.addingDays(date, 1);
    }
    return date;
}

TimePoint rolledForward(const Chosen& chosen, TimePoint reference, const Calendar& calendar) {
    TimePoint date = chosen.date;
    if (date >= reference) return date;
    if (chosen.timed) {
        date = addedDaysUntil(date, reference, calendar);
    } else if (calendar.startOfDay(date) < calendar.startOfDay(reference)) {
        date = calendar.addingYears(date, 1);
    }
    return date;
}

std::string withoutRanges(std::string_view text, const std::vector<ByteRange>& ranges) {
    std::string out;
    std::size_t kept = 0;
    for (const ByteRange& range : ranges) {
        out.append(text.substr(kept, range.start - kept));
        kept = range.end;
    }
    return out.append(text.substr(kept));
}

/// Steps 3 and 4 of reading an alarm: the day with the supplemental time.
CaptureDateParseResult withClockTime(std::string_view text, CivilTime day, const SupplementalClockTime& time,
                                     std::string title, TimePoint reference, const Calendar& calendar) {
    day.hour = time.hour;
    day.minute = time.minute;
    day.second = 0;
    const auto moment = calendar.resolve(day);
    if (!moment) return {std::move(title), std::nullopt, false};
    const TimePoint date = *moment < reference ? calendar.addingDays(*moment, 1) : *moment;
    title = stripTrailingPrepositions(withoutRanges(text, {time.range}));
    title = std::string(trimmed(collapsedWhitespace(title)));
    if (title.empty()) title = "Alarm";
    return {std::move(title), date, true};
}
} // namespace

bool checkHasTimePattern(std::string_view text) {
    if (isAscii(text) && text.size() <= 64) { // Most phrases: no allocation.
        char lower[64];
        for (std::size_t i = 0; i < text.size(); ++i) lower[i] = scan::asciiLower(text[i]);
        return hasTimePatternInLowerCase(std::string_view(lower, text.size()));
    }
    return hasTimePatternInLowerCase(lowercased(text));
}

std::string stripTrailingPrepositions(std::string_view text) {
    const std::string_view body = trimmed(text);
    for (const std::string_view word : {"at", "on", "by", "next", "this", "for", "in", "to"}) {
        if (body.size() < word.size()) continue;
        const std::size_t start = body.size() - word.size();
        bool same = true;
        for (std::size_t i = 0; same && i < word.size(); ++i) same = scan::asciiLower(body[start + i]) == word[i];
        if (!same) continue;
        if (start == 0) return {};
        if (body[start - 1] == ' ') return std::string(trimmed(body.substr(0, start - 1)));
    }
    return std::string(body);
}

CaptureDateParseResult CaptureDateParser::parseTitleAndDate(std::string_view text, TimePoint referenceDate,
                                                            const Calendar& calendar) {
    const std::vector<DateMatch> matches = DateDetector::detect(text, referenceDate, calendar);
    if (matches.empty()) return {std::string(text), std::nullopt, false};
    const Chosen chosen = chosenMatch(matches, text, calendar);
    std::string title = stripTrailingPrepositions(collapsedWhitespace(withoutRanges(text, chosen.ranges)));
    if (title.empty()) title = "Untitled";
    return {std::move(title), rolledForward(chosen, referenceDate, calendar), chosen.timed};
}

CaptureDateParseResult CaptureDateParser::parseAlarm(std::string_view text, TimePoint referenceDate,
                                                     const Calendar& calendar) {
    CaptureDateParseResult parsed = parseTitleAndDate(text, referenceDate, calendar);
    if (parsed.date && parsed.hasTime) return parsed;
    const auto time = supplementalClockTime(text);
    if (!time) return parsed;
    const CivilTime day = calendar.civil(parsed.date.value_or(referenceDate));
    return withClockTime(text, day, *time, std::move(parsed.title), referenceDate, calendar);
}

std::optional<TimePoint> CaptureDateParser::dateWithDefaultMorningTime(const CaptureDateParseResult& result,
                                                                       const Calendar& calendar, int hour, int minute) {
    if (!result.date || result.hasTime) return result.date;
    CivilTime civil = calendar.civil(*result.date);
    civil.hour = hour;
    civil.minute = minute;
    civil.second = 0;
    return calendar.resolve(civil);
}

std::string CaptureDateParser::formatTime(TimePoint date, const Calendar& calendar) {
    return calendar.formatTime(date);
}

std::string CaptureDateParser::formatDateTime(TimePoint date, const Calendar& calendar) {
    return calendar.formatDateTime(date);
}
} // namespace snipwren
