#include "hosts/portable/ICalendarText.h"

#include <gtest/gtest.h>

#include "base/Text.h"

namespace snipwren {
namespace {
Calendar calendarOf(const char* zone) { return *Calendar::make(zone, "en_GB"); }

std::string eventFrom(const Calendar& calendar, TimePoint start) {
    return ICalendarText::event({"standup", start, start + std::chrono::hours(1)}, "uid", TimePoint{}, calendar);
}

bool contains(const std::string& text, const std::string& what) { return text.find(what) != std::string::npos; }
} // namespace

TEST(ICalendarText, WritesAnEventWithTheRulesOfItsZone) {
    const Calendar cairo = calendarOf("Africa/Cairo");
    const std::string text = eventFrom(cairo, *cairo.resolve({2027, 7, 14, 14, 0, 0}));
    EXPECT_TRUE(contains(text, "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Snipwren//Snipwren 1.0//EN\r\n"
                               "BEGIN:VTIMEZONE\r\nTZID:Africa/Cairo\r\n"))
        << text;
    // The transition before the item: at midnight of the last Friday of April 2027.
    EXPECT_TRUE(contains(text, "BEGIN:DAYLIGHT\r\nDTSTART:20270430T000000\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0300\r\n"
                               "TZNAME:EEST\r\nEND:DAYLIGHT\r\n"))
        << text;
    EXPECT_TRUE(contains(text,
                         "END:VTIMEZONE\r\nBEGIN:VEVENT\r\nUID:uid\r\nDTSTAMP:19700101T000000Z\r\n"
                         "CREATED:19700101T000000Z\r\nSUMMARY:standup\r\n"
                         "DTSTART;TZID=Africa/Cairo:20270714T140000\r\nDTEND;TZID=Africa/Cairo:20270714T150000\r\n"
                         "END:VEVENT\r\nEND:VCALENDAR\r\n"))
        << text;
    const Calendar lord = calendarOf("Australia/Lord_Howe");
    EXPECT_TRUE(contains(eventFrom(lord, *lord.resolve({2027, 1, 5, 9, 0, 0})), "TZOFFSETTO:+1030\r\n"));
    const Calendar monrovia = calendarOf("Africa/Monrovia"); // Not even whole minutes, until 1972.
    EXPECT_TRUE(contains(eventFrom(monrovia, *monrovia.resolve({1971, 6, 1, 9, 0, 0})), "TZOFFSETTO:-004430\r\n"));
}

TEST(ICalendarText, WritesUtcWhereALocalTimeOccursTwice) {
    const Calendar berlin = calendarOf("Europe/Berlin");
    const TimePoint overlap = *berlin.resolve({2027, 10, 31, 2, 30, 0});
    struct Row {
        TimePoint start;
        bool inUtc;
    };
    const Row rows[] = {{overlap, true},
                        {overlap + std::chrono::hours(1), true},
                        {overlap - std::chrono::hours(1), true}, // It ends in the overlap.
                        {overlap - std::chrono::hours(2), false},
                        {overlap + std::chrono::hours(2), false}};
    for (const Row& row : rows) {
        const std::string text = eventFrom(berlin, row.start);
        EXPECT_EQ(contains(text, "VTIMEZONE"), !row.inUtc) << text;
        EXPECT_EQ(contains(text, "DTSTART;TZID="), !row.inUtc) << text;
    }
    EXPECT_TRUE(contains(eventFrom(calendarOf("UTC"), TimePoint{}), "DTSTART:19700101T000000Z\r\n"));
}

TEST(ICalendarText, AReminderHasWhatItWasGivenAndNothingMore) {
    const Calendar berlin = calendarOf("Europe/Berlin");
    const TimePoint due = *berlin.resolve({2027, 3, 29, 7, 30, 0});
    const std::string bare = ICalendarText::reminder({"milk", {}, {}}, "uid", TimePoint{}, berlin);
    for (const char* absent : {"DUE", "VALARM", "VTIMEZONE"}) EXPECT_FALSE(contains(bare, absent)) << bare;
    const std::string dated = ICalendarText::reminder({"milk", due, {}}, "uid", TimePoint{}, berlin);
    EXPECT_TRUE(contains(dated, "DUE;TZID=Europe/Berlin:20270329T073000\r\n"));
    EXPECT_FALSE(contains(dated, "VALARM"));
    const std::string timed =
        ICalendarText::reminder({"milk, eggs", due, due - std::chrono::minutes(30)}, "uid", TimePoint{}, berlin);
    EXPECT_TRUE(contains(timed, "BEGIN:VALARM\r\nACTION:DISPLAY\r\nDESCRIPTION:milk\\, eggs\r\n"
                                "TRIGGER;VALUE=DATE-TIME:20270329T050000Z\r\nEND:VALARM\r\n"))
        << timed;
}

TEST(ICalendarText, EscapesAndFoldsAtEveryByte) {
    EXPECT_EQ(ICalendarText::escaped("a\\b;c,d\r\ne\nf\tg\x01\x7Fh\xFF"), "a\\\\b\\;c\\,d\\ne\\nf\tgh\xEF\xBF\xBD");
    // Characters of one to four bytes, moved along by one byte at a time over the first and the second fold.
    for (std::size_t shift = 0; shift < 160; ++shift) {
        std::string line = "SUMMARY:" + std::string(shift, 'x');
        for (int i = 0; i < 30; ++i) line += "aé€😀";
        const std::string folded = ICalendarText::folded(line);
        ASSERT_EQ(folded.substr(folded.size() - 2), "\r\n");
        EXPECT_EQ(replacedAll(folded, "\r\n ", ""), line + "\r\n") << shift;
        for (std::string_view piece : split(folded, '\n')) {
            EXPECT_LE(piece.size(), 76U) << shift; // With the carriage return.
            EXPECT_TRUE(isValidUtf8(piece)) << shift;
        }
    }
}
} // namespace snipwren
