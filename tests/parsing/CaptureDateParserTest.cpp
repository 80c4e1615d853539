#include "parsing/dates/CaptureDateParser.h"

#include <cstdio>

#include <gtest/gtest.h>

#include "base/Regex.h"
#include "base/Text.h"
#include "parsing/RandomText.h"
#include "parsing/dates/DateDetector.h"

namespace snipwren {
namespace {
class CaptureDateParserTest : public ::testing::Test {
protected:
    std::string shown(const CaptureDateParseResult& result) const {
        std::string out = result.title + " | ";
        if (!result.date) return out + "none";
        const CivilTime date = calendar_.civil(*result.date);
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d", date.year, date.month, date.day, date.hour,
                      date.minute);
        return out + buffer + (result.hasTime ? " timed" : "");
    }
    std::string parsed(std::string_view text) const {
        return shown(CaptureDateParser::parseTitleAndDate(text, now_, calendar_));
    }
    std::string alarm(std::string_view text) const {
        return shown(CaptureDateParser::parseAlarm(text, now_, calendar_));
    }

    Calendar calendar_ = *Calendar::make("Europe/London", "en_US");
    TimePoint now_ = *calendar_.resolve({2026, 8, 12, 10, 0, 0}); // A Wednesday.
};

TEST_F(CaptureDateParserTest, SplitsTitleAndDate) {
    const std::pair<const char*, const char*> cases[] = {
        {"dentist tomorrow at 3pm", "dentist | 2026-08-13 15:00 timed"},
        {"  no date here\t", "  no date here\t | none"}, // Unchanged, not even trimmed.
        {"tomorrow at 3pm", "Untitled | 2026-08-13 15:00 timed"},
        {"pay rent on friday", "pay rent | 2026-08-14 12:00"},
        {"go to at friday", "go to | 2026-08-14 12:00"}, // One word only.
        {"for tomorrow", "Untitled | 2026-08-13 12:00"},
        {"tea \n at 9am\u00A0now", "tea now | 2026-08-13 09:00 timed"}, // Past today: tomorrow.
        {"log yesterday", "log | 2027-08-11 12:00"},                    // A past day moves a year ahead.
        {"log yesterday at 5pm", "log | 2026-08-12 17:00 timed"},       // A past moment moves by days.
        {"meet team friday", "meet team | 2026-08-14 12:00"},
        // Two phrases: merged when nothing but a small word is between them, else the first counts.
        {"tomorrow dentist at 3pm", "dentist at 3pm | 2026-08-13 12:00"},
        {"offsite Aug 20 and demo Aug 27", "offsite and demo Aug 27 | 2026-08-20 12:00"},
        {"in 20 minutes tea", "tea | 2026-08-12 10:20"}, // A moment, but not a clock time.
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(parsed(text), want) << text;
}

/// Days long past are added in strides; the outcome is that of adding them one by one, through every clock change.
TEST_F(CaptureDateParserTest, RollsForwardDayByDay) {
    for (int month = 1; month <= 12; ++month)
        for (const int day : {1, 25, 28})
            for (const char* time : {"00:30", "01:30", "02:00", "15:00"})
                for (const int year : {2020, 2025, 2026}) {
                    char text[64];
                    std::snprintf(text, sizeof text, "%04d-%02d-%02d %s", year, month, day, time);
                    TimePoint want = DateDetector::detect(text, now_, calendar_).at(0).date;
                    for (int added = 0; want < now_ && added < 370; ++added) want = calendar_.addingDays(want, 1);
                    const auto got = CaptureDateParser::parseTitleAndDate(text, now_, calendar_);
                    EXPECT_EQ(isoUtc(got.date.value_or(TimePoint())), isoUtc(want)) << text;
                }
}

TEST_F(CaptureDateParserTest, AnAlarmFindsAClockTimeWhereverItStands) {
    const std::pair<const char*, const char*> cases[] = {
        {"7:30am take meds", "take meds | 2026-08-13 07:30 timed"},
        {"buy 2 tickets", "buy tickets | 2026-08-13 02:00 timed"},
        {"standup 11", "standup | 2026-08-12 11:00 timed"},
        {"friday take meds", "take meds | 2026-08-14 12:00"},
        {"friday take 2 meds", "friday take meds | 2026-08-14 02:00 timed"}, // The words of the day stay.
        {"9", "Alarm | 2026-08-13 09:00 timed"},
        {"at 9", "Untitled | 2026-08-13 09:00 timed"},
        {"at 25", "at 25 | none"},
        {"take meds", "take meds | none"},
        {"run 5km", "run 5km | none"},
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(alarm(text), want) << text;
}

TEST_F(CaptureDateParserTest, ABareDateGetsItsMorning) {
    const auto at = [&](const char* text, int hour, int minute) {
        auto result = CaptureDateParser::parseTitleAndDate(text, now_, calendar_);
        result.date = CaptureDateParser::dateWithDefaultMorningTime(result, calendar_, hour, minute);
        return shown(result);
    };
    EXPECT_EQ(at("x friday", 9, 0), "x | 2026-08-14 09:00");
    EXPECT_EQ(at("x friday", 7, 45), "x | 2026-08-14 07:45");
    EXPECT_EQ(at("x friday 5pm", 9, 0), "x | 2026-08-14 17:00 timed");
    EXPECT_EQ(at("x", 9, 0), "x | none");
}

/// The title of a capture with one phrase holds no date any more, and none of its other words is lost.
TEST_F(CaptureDateParserTest, TheTitleKeepsTheWordsAndLosesTheDate) {
    const char* const titles[] = {"water the plants", "ship order #4821", "call 555-0182", "café with Léa 🎂",
                                  "buy 2 tickets",    "email Mr. Smith",  "meet Joe"};
    const char* const phrases[] = {
        "tomorrow",        "friday 3pm",   "next tuesday at noon",      "on Aug 20",      "in 3 weeks",
        "at 15:00",        "2026-09-01",   "the day after tomorrow",    "on 9/15 at 7pm", "tonight at 8",
        "by 5pm tomorrow", "2-3pm friday", "on the 5th of January 2027"};
    for (const char* title : titles)
        for (const char* phrase : phrases)
            for (const bool first : {true, false}) {
                const std::string text = first ? std::string(phrase) + " " + title : std::string(title) + " " + phrase;
                const auto result = CaptureDateParser::parseTitleAndDate(text, now_, calendar_);
                ASSERT_TRUE(result.date) << text;
                EXPECT_TRUE(DateDetector::detect(result.title, now_, calendar_).empty())
                    << text << ": " << result.title;
                EXPECT_NE(result.title.find(title), std::string::npos) << text << ": " << result.title;
            }
}

TEST_F(CaptureDateParserTest, TheTimePatternIsTheDocumentedOne) {
    const auto expression = Regex::compile(R"(\b(at|around|@)\s*\d+)");
    ASSERT_TRUE(expression);
    RandomText random(5, {"at",     "AT", "around", "@",     "x",      " ",  "\u00A0", "\u200B", "3",
                          "\u0663", "a",  "m",      "p",     "no",     "on", "é",      "cloc",   "k",
                          "\u212A", ":",  "to",     "night", "\u0301", "_",  "\u0130"});
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random.next(7);
        const std::string lower = lowercased(text);
        bool want = expression->contains(std::string_view(lower)).value_or(false);
        for (const char* sign : {"am", "pm", ":", "clock", "noon", "midnight", "tonight"})
            want |= lower.find(sign) != std::string::npos;
        ASSERT_EQ(checkHasTimePattern(text), want) << text;
    }
}

/// parseAlarm over texts without a date, against the expression that says where the clock time is.
TEST_F(CaptureDateParserTest, TheSupplementalClockTimeIsTheDocumentedOne) {
    const auto expression = Regex::compile(R"((?i)\b(?:at\s+)?(\d{1,2})(?::(\d{2}))?\s*(am|pm|a\.m\.|p\.m\.)?\b)");
    ASSERT_TRUE(expression);
    RandomText random(9,
                      {"at", "At ", "1",    "12",   "23", "45", "7",      ":", ":30", " ", "\t",     "\u00A0", "\u200B",
                       "am", "PM",  "a.m.", "p.m.", "x",  "é",  "\u0663", "_", ".",   "-", "\u0301", "tea "});
    int compared = 0;
    for (int i = 0; i < 40000; ++i) {
        const std::string text = random.next(8);
        if (CaptureDateParser::parseTitleAndDate(text, now_, calendar_).date) continue;
        ++compared;
        const auto match = expression->firstMatch(std::string_view(text));
        ASSERT_TRUE(match) << text;
        std::string want = text + " | none";
        if (*match) {
            const std::string hourText((*match)->text(text, 1));
            const std::string minuteText((*match)->text(text, 2));
            const std::string half = lowercased((*match)->text(text, 3));
            const bool numeric = hourText.find_first_not_of("0123456789") == std::string::npos;
            int hour = numeric ? std::stoi(hourText) : -1;
            int minute = 0;
            if (!minuteText.empty() && minuteText.find_first_not_of("0123456789") == std::string::npos)
                minute = std::stoi(minuteText);
            if (hour >= 0 && half.starts_with("p") && hour < 12) hour += 12;
            if (half.starts_with("a") && hour == 12) hour = 0;
            if (hour >= 0 && hour < 24 && minute < 60) {
                CaptureDateParseResult result;
                result.title = text;
                result.title.erase((*match)->start(), (*match)->length());
                result.title = trimmed(collapsedWhitespace(stripTrailingPrepositions(result.title)));
                if (result.title.empty()) result.title = "Alarm";
                result.date = calendar_.resolve({2026, 8, 12, hour, minute, 0});
                if (*result.date < now_) result.date = calendar_.addingDays(*result.date, 1);
                result.hasTime = true;
                want = shown(result);
            }
        }
        ASSERT_EQ(alarm(text), want) << text;
    }
    EXPECT_GT(compared, 5000);
}
} // namespace
} // namespace snipwren
