#include "parsing/CapturePreview.h"

#include <algorithm>

#include "base/Text.h"
#include "parsing/CalcExpressionEvaluator.h"
#include "parsing/CaptureDateParser.h"
#include "parsing/DateDetector.h"
#include "parsing/DurationParser.h"

namespace snipwren {
namespace {
constexpr std::string_view separator = " · ";
constexpr std::string_view timerHint = "Read as a clock time. For a countdown use //timer";
constexpr std::string_view dayOnlyHint = "Only the day is read. Name a clock time, such as at 3pm";

std::string dayText(TimePoint date, bool withTime, TimePoint reference, const Calendar& calendar) {
    const bool sameYear = calendar.civil(date).year == calendar.civil(reference).year;
    std::string pattern = sameYear ? "EEE d MMM" : "EEE d MMM yyyy";
    if (withTime) pattern += ", HH:mm";
    return calendar.format(date, pattern);
}

std::string joined(std::string day, const std::string& title) {
    return title.empty() ? day : day.append(separator).append(title);
}

/// "in 20 minutes" names a moment, but not as a clock time, which is all that alarms and events go by.
bool namesCountdown(std::string_view text, TimePoint reference, const Calendar& calendar) {
    const auto matches = DateDetector::detect(text, reference, calendar);
    return std::any_of(matches.begin(), matches.end(), [text](const DateMatch& match) {
        return match.hasClock && !checkHasTimePattern(text.substr(match.start, match.end - match.start));
    });
}

CapturePreview timerPreview(std::string_view text) {
    const auto result = DurationParser::parse(text);
    if (result) return {joined(result->displayDuration, result->label.value_or("")), {}};
    if (result.error() == DurationParserError::invalidFormat) return {"no duration", {}};
    return {std::string(message(result.error())), {}};
}

CapturePreview alarmPreview(std::string_view text, TimePoint reference, const Calendar& calendar) {
    const auto result = CaptureDateParser::parseAlarm(text, reference, calendar);
    const bool countdown = namesCountdown(text, reference, calendar);
    if (!result.date) return {"no date", countdown ? std::string(timerHint) : std::string()};
    if (!result.hasTime) return {"no time", countdown ? std::string(timerHint) : std::string()};
    // A clock time elsewhere in the text wins over the countdown and is what was meant.
    const bool misread = countdown && !CaptureDateParser::parseTitleAndDate(text, reference, calendar).hasTime;
    return {joined(dayText(*result.date, true, reference, calendar), result.title),
            misread ? std::string(timerHint) : std::string()};
}

CapturePreview reminderPreview(std::string_view text, TimePoint reference, const Calendar& calendar) {
    const auto result = CaptureDateParser::parseTitleAndDate(text, reference, calendar);
    if (!result.date) return {"no date", {}};
    const CivilTime civil = calendar.civil(*result.date);
    const bool noon = civil.hour == 12 && civil.minute == 0; // Where a bare day stands.
    return {joined(dayText(*result.date, result.hasTime || !noon, reference, calendar), result.title), {}};
}

CapturePreview eventPreview(std::string_view text, TimePoint reference, const Calendar& calendar) {
    const auto result = CaptureDateParser::parseTitleAndDate(text, reference, calendar);
    const auto start = CaptureDateParser::dateWithDefaultMorningTime(result, calendar);
    if (!start) return {"no date", {}};
    const bool misread = !result.hasTime && namesCountdown(text, reference, calendar);
    return {joined(dayText(*start, true, reference, calendar), result.title),
            misread ? std::string(dayOnlyHint) : std::string()};
}
} // namespace

std::optional<CapturePreview> CapturePreview::of(std::string_view commandName, std::string_view text,
                                                 TimePoint referenceDate, const Calendar& calendar) {
    const std::string_view body = trimmed(text);
    if (body.empty()) return std::nullopt;
    if (commandName == "timer") return timerPreview(body);
    if (commandName == "alarm") return alarmPreview(body, referenceDate, calendar);
    if (commandName == "reminders") return reminderPreview(text, referenceDate, calendar);
    if (commandName == "calendar") return eventPreview(body, referenceDate, calendar);
    if (commandName == "calc")
        if (auto result = CalcExpressionEvaluator::previewEvaluate(body)) return CapturePreview{std::move(*result), {}};
    return std::nullopt;
}
} // namespace snipwren
