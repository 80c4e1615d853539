#include "parsing/dates/DateDetector.h"

#include <cstdio>

#include <gtest/gtest.h>

#include "parsing/RandomText.h"

namespace snipwren {
namespace {
Calendar calendarOf(const char* zone, const char* locale = "en_US") {
    auto calendar = Calendar::make(zone, locale);
    EXPECT_TRUE(calendar) << zone;
    return *calendar;
}

/// "phrase=2026-08-13 15:00; ..." of all matches.
std::string found(std::string_view text, const CivilTime& now, const Calendar& calendar) {
    std::string out;
    const std::u16string wide = toUtf16(text);
    for (const DateMatch& match : DateDetector::detect(text, *calendar.resolve(now), calendar)) {
        const CivilTime date = calendar.civil(match.date);
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d", date.year, date.month, date.day, date.hour,
                      date.minute);
        if (!out.empty()) out += "; ";
        out += toUtf8(std::u16string_view(wide).substr(match.range.start, match.range.length)) + "=" + buffer;
    }
    return out;
}

constexpr CivilTime wednesday{2026, 8, 12, 10, 0, 0};

TEST(DateDetector, ReadsPhrasesOfEveryKind) {
    const Calendar calendar = calendarOf("Europe/London");
    const std::pair<const char*, const char*> cases[] = {
        {"send the deck by 5pm tomorrow", "5pm tomorrow=2026-08-13 17:00"},
        {"3:15 PM Thursday pick up kids", "3:15 PM Thursday=2026-08-13 15:15"},
        {"lecture next tuesday at noon", "next tuesday at noon=2026-08-18 12:00"},
        {"party this coming saturday night", "this coming saturday night=2026-08-15 20:00"},
        {"vacation from Dec 20 to Jan 3, 2027", "from Dec 20 to Jan 3, 2027=2026-12-20 12:00"},
        {"review two weeks from tomorrow", "two weeks from tomorrow=2026-08-27 12:00"},
        {"pizza in two and a half hours", "in two and a half hours=2026-08-12 12:30"},
        {"ten to six pm", "ten to six pm=2026-08-12 17:50"},
        {"shift 11-1pm", "11-1pm=2026-08-12 11:00"},
        {"webinar friday 10am PT", "friday 10am PT=2026-08-14 18:00"},
        {"webinar 2026-09-01T10:00:00+02:00", "2026-09-01T10:00:00+02:00=2026-09-01 09:00"},
        {"the second tuesday of next month", "the second tuesday of next month=2026-09-08 12:00"},
        {"easter 2027", "easter 2027=2027-03-28 12:00"},
        {"new year's eve party", "new year's eve=2026-12-31 12:00"},
        {"kickoff Sep-01-2026", "Sep-01-2026=2026-09-01 12:00"},
        {"9/1/2026 - 9/4/2026 offsite", "9/1/2026 - 9/4/2026=2026-09-01 12:00"},
        {"two days before yesterday", "two days before yesterday=2026-08-09 12:00"},
        {"tonight at midnight", "tonight at midnight=2026-08-13 00:00"},
        {"saturday the 15th at 11", "saturday the 15th at 11=2026-08-15 11:00"},
        {"rent on the 1st", "the 1st=2026-09-01 12:00"},
        {"🎂 café friday 3pm — naïve", "friday 3pm=2026-08-14 15:00"},
        {"buy milk tomorrow and call mom at 5pm", "tomorrow=2026-08-13 12:00; at 5pm=2026-08-12 17:00"},
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(found(text, wednesday, calendar), want) << text;
}

/// Everyday texts with numbers and words that only look like dates; each of these has been misread by some rule.
TEST(DateDetector, LeavesWhatIsNoDateAlone) {
    const Calendar calendar = calendarOf("Europe/London");
    const char* const texts[] = {
        "iPhone 17 case",
        "covid 19 test",
        "score was 3-2",
        "aspect ratio 16:9",
        "read John 3:16",
        "rated 9/10",
        "3/4 inch screws",
        "24/7 gym",
        "invoice 2026-001",
        "http://example.com/2026/08/12/post.html",
        "upgrade to v3.2",
        "192.168.0.1:8080",
        "call +1 (415) 555-0100",
        "$5.30 tip",
        "at 221B Baker Street",
        "at 10 Downing Street",
        "on the 3rd floor",
        "9 to 5 job",
        "5 to 10 people",
        "2 weeks notice",
        "5% off",
        "for 3 hours",
        "just a second",
        "half a dozen eggs",
        "may the force be with you",
        "you may leave",
        "lunch with April",
        "the sun is hot",
        "sun-dried tomatoes",
        "cat sat on the mat",
        "mark my words",
        "black friday deals list",
        "christmas tree",
        "friday@example.com",
        "mondaynight",
        "25:61",
        "2026-02-30",
        "32 January",
        "June 31 party",
        "at 13pm",
        "0 am",
        "at one point",
        "at 7 eleven",
        "4/4 beat",
        "10/10 would buy",
        "wed the two tables",
        "2 times a day",
        "3 year old",
        "15 Pro",
        "end of story",
        "24:30",
        "IBAN DE89 3704 0044 0532 0130 00",
        "seat 12A",
    };
    for (const char* text : texts) EXPECT_EQ(found(text, wednesday, calendar), "") << text;
}

TEST(DateDetector, KeepsToTheCalendar) {
    const Calendar london = calendarOf("Europe/London", "en_GB");
    const Calendar newYork = calendarOf("America/New_York");
    struct Case {
        const char* text;
        CivilTime now;
        const Calendar& calendar;
        const char* want;
    };
    const CivilTime friday{2026, 11, 20, 16, 45, 0};
    const Case cases[] = {
        // A Friday said on a Friday is the next one; "this friday" is today.
        {"friday", friday, newYork, "friday=2026-11-27 12:00"},
        {"this friday", friday, newYork, "this friday=2026-11-20 12:00"},
        {"next friday", friday, newYork, "next friday=2026-11-27 12:00"},
        {"last friday", friday, newYork, "last friday=2026-11-13 12:00"},
        // On a Sunday the next week is the one that begins tomorrow.
        {"next sunday", {2026, 11, 22, 9, 0, 0}, newYork, "next sunday=2026-11-29 12:00"},
        // Year ends and leap years.
        {"jan 2nd", {2026, 12, 30, 9, 0, 0}, newYork, "jan 2nd=2027-01-02 12:00"},
        {"tomorrow 1am", {2026, 12, 31, 23, 59, 59}, newYork, "tomorrow 1am=2027-01-01 01:00"},
        {"feb 29th", {2026, 3, 1, 9, 0, 0}, newYork, "feb 29th=2028-02-29 12:00"},
        {"in 1 year", {2028, 2, 29, 9, 0, 0}, newYork, "in 1 year=2029-02-28 12:00"},
        {"in 1 month", {2026, 1, 31, 9, 0, 0}, newYork, "in 1 month=2026-02-28 12:00"},
        // The order of numeric dates is the locale's, unless only one order gives a date.
        {"on 3/4", friday, newYork, "3/4=2027-03-04 12:00"},
        {"on 3/4", friday, london, "3/4=2027-04-03 12:00"},
        {"on 25/12/2026", friday, newYork, "25/12/2026=2026-12-25 12:00"},
        {"on 12/25/2026", friday, london, "12/25/2026=2026-12-25 12:00"},
        // A time in the gap of spring moves past it; of a repeated hour the first one counts.
        {"tomorrow 1:30am", {2026, 3, 28, 9, 0, 0}, london, "tomorrow 1:30am=2026-03-29 02:30"},
        {"tomorrow 2:30am", {2026, 3, 7, 9, 0, 0}, newYork, "tomorrow 2:30am=2026-03-08 03:30"},
        // Hours are counted on the real clock, days on the calendar.
        {"in 3 hours", {2026, 3, 28, 23, 0, 0}, london, "in 3 hours=2026-03-29 03:00"},
        {"in 1 day", {2026, 3, 28, 23, 0, 0}, london, "in 1 day=2026-03-29 12:00"},
    };
    for (const auto& [text, now, calendar, want] : cases) EXPECT_EQ(found(text, now, calendar), want) << text;
    const auto first = DateDetector::detect("oct 25 2026 1:30am", *london.resolve(friday), london);
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(isoUtc(first[0].date), "2026-10-25T00:30:00Z");
}

/// Whatever words meet, the ranges are in order, inside the text, and never cut a character.
TEST(DateDetector, RangesAreSoundForAnyText) {
    RandomText random(3, {"tomorrow ", "friday ",  "at ",   "3",      " pm ",   "in ",  "half ", "past ",
                          "the ",      "15th ",    "of ",   "march ", "to ",    "-",    "/",     "2026",
                          ":",         ", ",       " ",     "🎂",      "é ",     "a ",   "week ", "from ",
                          "next ",     "morning ", "\xFF",  "\n",     "1",      "30 ",  "@",     "noon ",
                          "ago ",      "may ",     "last ", "+",      "hours ", " utc", "."});
    const Calendar calendar = calendarOf("America/New_York");
    const TimePoint now = *calendar.resolve(wednesday);
    int matched = 0;
    for (int i = 0; i < 30000; ++i) {
        const std::string text = random.next(14);
        std::size_t end = 0;
        for (const DateMatch& match : DateDetector::detect(text, now, calendar)) {
            ++matched;
            ASSERT_GE(match.start, end) << text;
            ASSERT_GT(match.end, match.start) << text;
            ASSERT_LE(match.end, text.size()) << text;
            end = match.end;
            for (const std::size_t edge : {match.start, match.end})
                ASSERT_TRUE(edge == text.size() || (static_cast<unsigned char>(text[edge]) & 0xC0) != 0x80) << text;
            ASSERT_EQ(match.range.start, utf16Offset(text, match.start)) << text;
            ASSERT_EQ(match.range.start + match.range.length, utf16Offset(text, match.end)) << text;
        }
    }
    EXPECT_GT(matched, 5000); // The texts do reach the rules.
}
} // namespace
} // namespace snipwren
