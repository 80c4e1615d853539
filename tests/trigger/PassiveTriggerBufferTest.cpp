#include "trigger/PassiveTriggerBuffer.h"

#include <gtest/gtest.h>

#include "base/ManualClock.h"

namespace snipwren {
namespace {
const std::vector<std::string> words{"note", "reminders", "copy"};

FocusFingerprint fieldNamed(const std::string& name) {
    return {"com.example.editor", "AXTextField", name, name, "Window", 100, 20};
}

/// What typing the text and a Space comes to: the word matched, or nothing.
std::string matched(const std::string& typed) {
    const ManualClock clock(TimePoint{});
    PassiveTriggerBuffer buffer(clock);
    buffer.append(typed);
    buffer.append(" ");
    const auto match = buffer.takeMatch(words);
    return match ? words[match->target] + " " + match->triggerBody : "";
}

TEST(PassiveTriggerBuffer, FindsTriggersWhereTheyMayBegin) {
    const std::pair<const char*, const char*> cases[] = {
        {"//note", "note //note"},
        {"Hello, //Note", "note //Note"},
        {"(//NOTE", "note //NOTE"},
        {"word//note", "note //note"},
        {"\xC3\xA9//note", "note //note"}, // after é
        {"\xF0\x9F\x98\x80//copy", "copy //copy"},
        {"https://note", ""},
        {"///note", ""},
        {"//notes", ""},
        {"//not", ""},
        {"/note", ""},
        {"//reminder", ""},
        {"//reminders", "reminders //reminders"},
        {"//clip", ""},
        {"// note", ""},
        {"//note ", ""}, // a second space
        {"", ""},
    };
    for (const auto& [typed, want] : cases) EXPECT_EQ(matched(typed), want) << typed;
}

TEST(PassiveTriggerBuffer, KeepsTheLastHundredCharacters) {
    const ManualClock clock(TimePoint{});
    PassiveTriggerBuffer buffer(clock);
    for (int i = 0; i < 150; ++i) buffer.append(i % 2 ? "\xC3\xA4" : "x");
    EXPECT_EQ(codePointCount(buffer.text()), 100U);
    buffer.append(std::string(1000, 'y') + "//note");
    EXPECT_EQ(buffer.text().size(), 100U);
    buffer.append("\n");
    EXPECT_TRUE(buffer.takeMatch(words));
}

TEST(PassiveTriggerBuffer, DeleteTakesOneCharacterAsTheFieldDoes) {
    const ManualClock clock(TimePoint{});
    PassiveTriggerBuffer buffer(clock);
    buffer.append("//notee");
    buffer.removeLastCharacter();
    buffer.append(" ");
    EXPECT_TRUE(buffer.takeMatch(words));
    buffer.clear();
    buffer.removeLastCharacter(); // Nothing left to take.
    // A family of four people is one character of several scalars.
    buffer.append("a\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7");
    buffer.removeLastCharacter();
    EXPECT_EQ(buffer.text(), "a");
}

TEST(PassiveTriggerBuffer, CutsATriggerThatItsBoundaryForbids) {
    const ManualClock clock(TimePoint{});
    PassiveTriggerBuffer buffer(clock);
    buffer.append("http://note ");
    EXPECT_FALSE(buffer.takeMatch(words));
    EXPECT_EQ(buffer.text(), "http: ");
}

TEST(PassiveTriggerBuffer, ResumesAFieldWithinTwoMinutes) {
    const std::pair<int, const char*> cases[] = {{120, "//no"}, {121, ""}};
    for (const auto& [seconds, want] : cases) {
        ManualClock clock(TimePoint{});
        PassiveTriggerBuffer buffer(clock);
        buffer.focusChanged(fieldNamed("first"));
        buffer.append("//no");
        buffer.focusChanged(fieldNamed("second"));
        EXPECT_EQ(buffer.text(), "");
        buffer.append("else");
        clock.advance(std::chrono::seconds(seconds));
        buffer.focusChanged(fieldNamed("first"));
        EXPECT_EQ(buffer.text(), want) << seconds << " s";
    }
}

TEST(PassiveTriggerBuffer, RetainsTwoFieldsAndIgnoresMenus) {
    ManualClock clock(TimePoint{});
    PassiveTriggerBuffer buffer(clock);
    for (const char* name : {"first", "second", "third", "fourth"}) {
        buffer.focusChanged(fieldNamed(name));
        buffer.append(name);
        clock.advance(std::chrono::seconds(1));
    }
    FocusFingerprint menu = fieldNamed("File");
    menu.role = "AXMenuItem";
    buffer.focusChanged(menu);
    EXPECT_EQ(buffer.text(), "fourth");
    EXPECT_FALSE(buffer.restoreIfMatching(fieldNamed("first"))) << "two newer ones took its place";
    EXPECT_TRUE(buffer.restoreIfMatching(fieldNamed("second")));
    EXPECT_EQ(buffer.text(), "second");
}
} // namespace
} // namespace snipwren
