#include "parsing/dates/DateDetector.h"

#include <optional>

#include "parsing/dates/DatePhraseReader.h"
#include "parsing/dates/DateReference.h"
#include "parsing/dates/DateTokens.h"

namespace snipwren {
namespace {
using std::chrono::sys_days;

/// Longer texts than token positions can count are cut; nobody types a gigabyte.
constexpr std::size_t maxLength = std::size_t{1} << 30;

CivilTime civilOf(const DatePhrase& phrase) {
    const std::chrono::year_month_day date(phrase.day);
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            phrase.hour,
            phrase.minute,
            phrase.second};
}

/// From the second Sunday of March to the first of November, each at 02:00.
bool isAmericanSummer(const DatePhrase& phrase) {
    using namespace std::chrono;
    const year civilYear = year_month_day(phrase.day).year();
    const sys_days start(civilYear / March / Sunday[2]);
    const sys_days finish(civilYear / November / Sunday[1]);
    const bool early = phrase.hour < 2;
    return (phrase.day > start || (phrase.day == start && !early))
           && (phrase.day < finish || (phrase.day == finish && early));
}

std::optional<TimePoint> momentOf(const DatePhrase& phrase, TimePoint reference, const Calendar& calendar) {
    if (phrase.offset) return reference + std::chrono::seconds(*phrase.offset);
    if (!phrase.zoneMinutes) return calendar.resolve(civilOf(phrase));
    const int minutes = *phrase.zoneMinutes + (phrase.americanSummerTime && isAmericanSummer(phrase) ? 60 : 0);
    return TimePoint(phrase.day) + std::chrono::hours(phrase.hour) + std::chrono::minutes(phrase.minute - minutes)
           + std::chrono::seconds(phrase.second);
}
} // namespace

std::vector<DateMatch> DateDetector::detect(std::string_view text, TimePoint reference, const Calendar& calendar) {
    std::vector<DateMatch> matches;
    const DateTokens tokens(text.substr(0, maxLength), DateLexicon::english());
    std::optional<DateReference> anchor; // Most texts need none.
    std::size_t units = 0;               // UTF-16 units before byte `counted`.
    std::size_t counted = 0;
    for (std::size_t index = 0; index < tokens.size(); ++index) {
        const DateToken& token = tokens[index];
        if (!DatePhraseReader::canBegin(token.kind)) continue;
        if (token.kind == DateWord::symbol && token.value != '@' && token.value != '+') continue;
        if (!anchor) anchor = DateReference::of(reference, calendar);
        const auto phrase = DatePhraseReader(tokens, *anchor).read(index);
        if (!phrase) continue;
        const auto date = momentOf(*phrase, reference, calendar);
        if (!date) continue;
        DateMatch match;
        match.start = tokens[phrase->begin].start;
        match.end = tokens[phrase->end - 1].end;
        match.date = *date;
        match.hasClock = phrase->hasClock;
        match.range.start = units + utf16Length(text.substr(counted, match.start - counted));
        match.range.length = utf16Length(text.substr(match.start, match.end - match.start));
        units = match.range.start + match.range.length;
        counted = match.end;
        matches.push_back(match);
        index = phrase->end - 1;
    }
    return matches;
}
} // namespace snipwren
