#include "capture/HostTriggerStripper.h"

#include <gtest/gtest.h>

#include "hosts/virtual/VirtualDesktop.h"

namespace snipwren {
namespace {
using Outcome = HostTriggerStripper::Outcome;

/// A field whose answers follow a script, over a virtual one that shows what was really done.
class ScriptedElement final : public FieldElement {
public:
    explicit ScriptedElement(std::string text) : text_(std::move(text)) {}
    std::optional<FieldDescription> describe() override { return FieldDescription(); }
    std::optional<std::string> value() override {
        if (!answers) return std::nullopt;
        return reads++ < lateReads ? text_.substr(0, text_.size() - 1) : text_;
    }
    std::optional<Utf16Range> selectedRange() override { return Utf16Range{caret.value_or(utf16Length(text_)), 0}; }
    std::optional<std::string> selectedText() override { return std::nullopt; }
    EditOutcome replaceRange(const Utf16Range& range, const std::string&) override {
        ++edits;
        if (outcome != EditOutcome::refused && carriesOut) text_.erase(range.start, range.length);
        if (becomes) text_ = *becomes;
        if (outcome == EditOutcome::unknown) answers = answersAfterTimeout;
        return outcome;
    }
    EditOutcome setValue(const std::string& value) override {
        if (acceptsWholeValue) text_ = value;
        return acceptsWholeValue ? EditOutcome::applied : EditOutcome::refused;
    }
    std::optional<Rect> boundsOf(const Utf16Range&) override { return std::nullopt; }
    std::optional<Rect> frame() override { return std::nullopt; }

    EditOutcome outcome = EditOutcome::applied;
    bool carriesOut = true;
    bool answers = true;
    bool answersAfterTimeout = true;
    bool acceptsWholeValue = false;
    std::optional<std::size_t> caret;
    /// What the program makes of the edit.
    std::optional<std::string> becomes;
    int lateReads = 0;
    int reads = 0;
    int edits = 0;

private:
    std::string text_;
};

struct StripperTest : testing::Test {
    Outcome strip(FieldElement* element, std::size_t length = 6, const std::string& bundleId = "com.example.editor") {
        HostTriggerStripper stripper(desktop, desktop, log,
                                     [this](std::chrono::microseconds time) { pauses.push_back(time); });
        return stripper.strip(element, {"//note", length, isCertain}, bundleId, [this] { return stillThere(); });
    }
    bool isCertain = true;
    std::function<bool()> stillThere = [] { return true; };
    VirtualDesktop desktop;
    MemoryLog log;
    std::vector<std::chrono::microseconds> pauses;
    StripperTest() { desktop.focus(desktop.addField("com.example.editor", VirtualFieldKind::inaccessible)); }
};

// An unanswered edit is carried out when the program wakes up: anything more would remove the user's own text.
TEST_F(StripperTest, LeavesAnUnansweredEditAlone) {
    for (const bool answersAfter : {true, false})
        for (const bool carriesOut : {true, false}) {
            ScriptedElement element("Hello //note");
            element.outcome = EditOutcome::unknown;
            element.answersAfterTimeout = answersAfter;
            element.carriesOut = carriesOut;
            const Outcome got = strip(&element);
            EXPECT_EQ(got, answersAfter && carriesOut ? Outcome::editedField : Outcome::leftAlone);
            EXPECT_EQ(element.edits, 1);
            EXPECT_TRUE(desktop.syntheticKeys().empty());
        }
}

TEST_F(StripperTest, FallsBackStepByStep) {
    ScriptedElement whole("Hello //note");
    whole.outcome = EditOutcome::refused;
    whole.acceptsWholeValue = true;
    EXPECT_EQ(strip(&whole), Outcome::editedField);
    EXPECT_EQ(whole.value(), "Hello ");

    ScriptedElement structured("Hello //note");
    structured.outcome = EditOutcome::refused;
    structured.acceptsWholeValue = true;
    EXPECT_EQ(strip(&structured, 6, "com.notion.desktop"), Outcome::postedBackspaces);
    EXPECT_EQ(structured.value(), "Hello //note") << "a structured editor's value is never rewritten";
    EXPECT_EQ(desktop.syntheticKeys().size(), 6U);
}

TEST_F(StripperTest, WaitsForALetterThatTheProgramShowsLate) {
    ScriptedElement element("Hello //note");
    element.lateReads = 2;
    EXPECT_EQ(strip(&element), Outcome::editedField);
    EXPECT_EQ(pauses.size(), 2U);
}

// The Space that ended the trigger reached the document as well and shows last; what stays behind would be one blank more.
TEST_F(StripperTest, TakesALateSpaceAlong) {
    ScriptedElement element("Hello //note ");
    element.lateReads = 2;
    EXPECT_EQ(strip(&element, 7), Outcome::editedField);
    EXPECT_EQ(element.value(), "Hello ");
    ScriptedElement trimming("Hello //note");
    EXPECT_EQ(strip(&trimming, 7), Outcome::editedField) << "a field that never shows it";
    EXPECT_EQ(trimming.value(), "Hello ");
}

TEST_F(StripperTest, CapsBackspacesAndPausesAfterEach) {
    EXPECT_EQ(strip(nullptr, 50), Outcome::postedBackspaces);
    EXPECT_EQ(desktop.syntheticKeys(), std::vector<int>(32, keycode::deleteKey));
    EXPECT_EQ(pauses, std::vector<std::chrono::microseconds>(32, std::chrono::microseconds(2500)));
    EXPECT_EQ(log.lines().back(), "CaptureRouter: AX strip unavailable — posting 32 backspaces");
}

TEST_F(StripperTest, TakesNothingThatItDoesNotSeeBeforeTheCaret) {
    ScriptedElement other("precious text");
    EXPECT_EQ(strip(&other), Outcome::nothingToStrip);
    EXPECT_EQ(pauses.size(), HostTriggerStripper::lookAttempts - 1U) << "looked for, for a while";

    ScriptedElement elsewhere("Hello //note");
    elsewhere.caret = 2;
    elsewhere.outcome = EditOutcome::refused;
    EXPECT_EQ(strip(&elsewhere, 6, "com.notion.desktop"), Outcome::leftAlone);

    ScriptedElement changed("Hello //note");
    changed.becomes = "Hello, dear //note";
    EXPECT_EQ(strip(&changed), Outcome::leftAlone) << "the program made something else of the edit";
    EXPECT_TRUE(desktop.syntheticKeys().empty());
}

TEST_F(StripperTest, AKeyboardThatRefusesIsNotAskedAgain) {
    VirtualDesktop nobody; // Without a field that has the keyboard.
    HostTriggerStripper(nobody, nobody, log, [](auto) {}).strip(nullptr, {"//note", 6, true}, "", stillThere);
    EXPECT_EQ(nobody.syntheticKeys().size(), 1U);
}

TEST_F(StripperTest, StopsWhenTheKeyboardHasGoneElsewhere) {
    int left = 3;
    stillThere = [&] { return left-- > 0; };
    EXPECT_EQ(strip(nullptr), Outcome::leftAlone);
    EXPECT_EQ(desktop.syntheticKeys().size(), 3U);
    left = 0;
    ScriptedElement field("Hello, //note");
    EXPECT_EQ(strip(&field), Outcome::leftAlone);
    EXPECT_EQ(field.edits, 0);
}

// What was typed may not stand before the caret any more: only what is seen there is removed.
TEST_F(StripperTest, PostsNoBackspacesForAnUncertainTrigger) {
    isCertain = false;
    EXPECT_EQ(strip(nullptr), Outcome::leftAlone);
    EXPECT_TRUE(desktop.syntheticKeys().empty());
    ScriptedElement field("Hello, //note");
    EXPECT_EQ(strip(&field), Outcome::editedField);
}

// Six letters may have become two characters, or be none yet.
TEST_F(StripperTest, PostsNoBackspacesWhereAnInputMethodMakesTheText) {
    desktop.setInputMethod(true);
    EXPECT_EQ(strip(nullptr), Outcome::leftAlone);
    EXPECT_TRUE(desktop.syntheticKeys().empty());
    ScriptedElement field("Hello, //note");
    EXPECT_EQ(strip(&field), Outcome::editedField) << "what the field shows is certain";
}
} // namespace
} // namespace snipwren
