#include "targets/PreviewText.h"

#include <algorithm>

#include "parsing/dates/CaptureDateParser.h"
#include "parsing/dates/DateDetector.h"

namespace snipwren {
std::string PreviewText::day(TimePoint date, bool withTime, TimePoint reference, const Calendar& calendar) {
    const bool sameYear = calendar.civil(date).year == calendar.civil(reference).year;
    std::string pattern = sameYear ? "EEE d MMM" : "EEE d MMM yyyy";
    if (withTime) pattern += ", HH:mm";
    return calendar.format(date, pattern);
}

std::string PreviewText::joined(std::string first, const std::string& title) {
    return title.empty() ? first : first.append(" · ").append(title);
}

std::string PreviewText::withAdvice(std::string text, std::string_view advice) {
    return advice.empty() ? text : text.append(" — ").append(advice);
}

bool PreviewText::namesCountdown(std::string_view text, TimePoint reference, const Calendar& calendar) {
    const auto matches = DateDetector::detect(text, reference, calendar);
    return std::any_of(matches.begin(), matches.end(), [text](const DateMatch& match) {
        return match.hasClock && !checkHasTimePattern(text.substr(match.start, match.end - match.start));
    });
}
} // namespace snipwren
