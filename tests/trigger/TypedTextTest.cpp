#include "trigger/TypedText.h"

#include <gtest/gtest.h>

#include "base/ManualClock.h"
#include "trigger/FallbackKeyTable.h"

namespace snipwren {
namespace {
FocusFingerprint fieldNamed(const std::string& name) {
    return {"com.example.editor", "AXTextField", name, name, "Window", 100, 20};
}

struct Model {
    ManualClock clock{TimePoint{}};
    TypedText typed{clock, {"note", "reminders", "copy"}};

    std::optional<TypedText::Match> key(int code, std::string_view characters = {}, Modifiers modifiers = {}) {
        KeyEvent event;
        event.keyCode = code;
        event.characters = characters;
        event.modifiers = modifiers;
        return typed.apply(event);
    }
    /// Blanks are Space, "\b" Delete, "\n" Return.
    std::optional<TypedText::Match> type(std::string_view text) {
        std::optional<TypedText::Match> match;
        for (std::size_t i = 0; i < text.size();) {
            const std::size_t start = i;
            const char32_t scalar = nextScalar(text, i);
            const int code = scalar == U' '    ? keycode::space
                             : scalar == U'\n' ? keycode::returnKey
                             : scalar == U'\b' ? keycode::deleteKey
                                               : 0;
            match = key(code, text.substr(start, i - start));
        }
        return match;
    }
};

TEST(TypedText, FindsTriggersWhereTheyMayBegin) {
    const std::pair<const char*, const char*> cases[] = {
        {"//note ", "0 //note"},
        {"Hello, //Note ", "0 //Note"},
        {"(//NOTE\n", "0 //NOTE"},
        {"word//note ", "0 //note"},
        {"\u00e9//note ", "0 //note"},
        {"\U0001F600//copy ", "2 //copy"},
        {"https://note ", ""},
        {"///note ", ""},
        {"//notes ", ""},
        {"//not ", ""},
        {"/note ", ""},
        {"//reminder ", ""},
        {"//reminders ", "1 //reminders"},
        {"//clip ", ""},
        {"// note ", ""},
        {"//note  ", ""}, // The second Space.
        {"//notee\b ", "0 //note"},
        {"//no\b\b\b\b//note ", "0 //note"},
        {"//no\n\bte ", ""},      // Only some fields begin a line then.
        {"///note \b/note ", ""}, // What was no trigger stays in the document, and so in the text.
        {" ", ""},
    };
    for (const auto& [typed, want] : cases) {
        Model model;
        std::string got;
        const auto match = model.type(typed);
        if (match) got = std::to_string(match->target) + " " + match->triggerBody;
        EXPECT_EQ(got, want) << typed;
    }
}

// What a terminal or an editor does then is not known, and the next match must not take anything away.
TEST(TypedText, WhateverCannotBeFollowedMakesTheTextUnknown) {
    const Modifiers control{.control = true};
    const Modifiers option{.option = true};
    const struct {
        const char* name;
        int code;
        const char* characters;
        Modifiers modifiers;
    } cases[] = {
        {"Ctrl+W", 13, "w", control},
        {"Ctrl+U", 32, "u", control},
        {"Ctrl+K", 40, "k", control},
        {"Ctrl+C", 8, "c", control},
        {"Ctrl+A", 0, "a", control},
        {"Ctrl+Z", 6, "z", control},
        {"Ctrl+V", 9, "v", control},
        {"Ctrl+Backspace", keycode::deleteKey, "", control},
        {"Alt+Backspace", keycode::deleteKey, "", option},
        {"Super+V", 9, "v", {.command = true}},
        {"Left", keycode::leftArrow, "\uF702", {}},
        {"Home without a character", keycode::home, "", {}},
        {"Page Down", 121, "\uF72D", {}},
        {"F5", 96, "", {}},
        {"Tab", keycode::tab, "\t", {}},
        {"Escape", keycode::escape, "\x1b", {}},
        {"Delete forward", keycode::forwardDelete, "\uF728", {}},
        {"Enter of the keypad", keycode::keypadEnter, "\r", {}},
    };
    for (const auto& row : cases) {
        Model model;
        model.type("//no");
        EXPECT_FALSE(model.key(row.code, row.characters, row.modifiers)) << row.name;
        EXPECT_EQ(model.typed.text(), "") << row.name;
        EXPECT_EQ(model.typed.interest(), KeyInterest::nothing) << row.name;
        EXPECT_FALSE(model.type("te ")) << row.name;
        const auto whole = model.type("//note ");
        ASSERT_TRUE(whole) << row.name;
        EXPECT_TRUE(whole->isCertain) << row.name << ": typed in one go since";
    }
}

TEST(TypedText, ModifiersAndDeadKeysAreNoBreak) {
    Model model;
    model.type("//n");
    model.key(keycode::shift);
    model.key(keycode::capsLock);
    KeyEvent dead;
    dead.isComposing = true;
    EXPECT_FALSE(model.typed.apply(dead));
    model.type("\u00f6\bote");
    EXPECT_TRUE(model.type(" "));
    // The fallback table is for keys that carry nothing, not for those that begin a character.
    model.typed.forget();
    dead.keyCode = 39;
    model.typed.apply(dead);
    EXPECT_EQ(model.typed.text(), "");
    model.key(39);
    EXPECT_EQ(model.typed.text(), "'");
}

TEST(TypedText, AClickLeavesNothingKnownUnlessItWentToAnotherField) {
    Model model;
    model.typed.focusChanged(fieldNamed("first"));
    model.type("//no");
    model.typed.doubt();
    EXPECT_EQ(model.typed.interest(), KeyInterest::nothing);
    EXPECT_FALSE(model.type("te "));
    model.typed.forget();

    model.type("//no");
    const auto place = model.typed.placeNumber();
    model.typed.doubt(); // Into the second field ...
    model.typed.focusChanged(fieldNamed("second"));
    EXPECT_NE(model.typed.placeNumber(), place);
    model.type("x");
    model.typed.doubt(); // ... and back.
    model.typed.focusChanged(fieldNamed("first"));
    EXPECT_EQ(model.typed.interest(), KeyInterest::terminators);
    const auto match = model.type("te ");
    ASSERT_TRUE(match);
    EXPECT_FALSE(match->isCertain) << "the click may have moved the caret";
}

TEST(TypedText, ATriggerBehindRestoredTextIsCertain) {
    Model model;
    model.typed.focusChanged(fieldNamed("first"));
    model.type("old ");
    model.typed.focusChanged(fieldNamed("second"));
    model.typed.focusChanged(fieldNamed("first"));
    EXPECT_EQ(model.typed.text(), "old ");
    const auto match = model.type("//note ");
    ASSERT_TRUE(match);
    EXPECT_TRUE(match->isCertain);

    // Restored text that is not there any more, because it was deleted or fell out of the window, casts no doubt either.
    for (const std::string& typed : {std::string(100, '\b'), std::string(120, 'x')}) {
        model.typed.forget();
        model.type(std::string(100, 'o'));
        model.typed.focusChanged(fieldNamed("second"));
        model.typed.focusChanged(fieldNamed("first"));
        ASSERT_EQ(model.typed.text().size(), 100U);
        const auto later = model.type(typed + "//note ");
        ASSERT_TRUE(later) << typed;
        EXPECT_TRUE(later->isCertain) << typed;
    }
}

TEST(TypedText, WhereNothingIsKnownNoKeyIsHeldBack) {
    const std::pair<const char*, void (*)(TypedText&)> ways[] = {
        {"forget", [](TypedText& typed) { typed.forget(); }},
        {"doubt", [](TypedText& typed) { typed.doubt(); }},
        {"erase", [](TypedText& typed) { typed.erase(); }},
        {"another field", [](TypedText& typed) { typed.focusChanged(fieldNamed("second")); }},
        {"another application", [](TypedText& typed) { typed.suspend(fieldNamed("first")); }},
    };
    for (const auto& [name, leave] : ways) {
        Model model;
        model.typed.focusChanged(fieldNamed("first"));
        model.type("//no");
        leave(model.typed);
        EXPECT_EQ(model.typed.interest(), KeyInterest::nothing) << name;
        EXPECT_EQ(model.typed.text(), "") << name;
    }
}

TEST(TypedText, ATextIsRetainedOnceAndGivenBackOnce) {
    Model model;
    model.type("older");
    model.typed.suspend(fieldNamed("first"));
    model.type("newer");
    model.typed.suspend(fieldNamed("first"));
    ASSERT_TRUE(model.typed.restoreIfMatching(fieldNamed("first")));
    EXPECT_EQ(model.typed.text(), "newer");
    EXPECT_FALSE(model.typed.restoreIfMatching(fieldNamed("first")));
}

TEST(FallbackKeyTable, EndsWhereTheKeysEnd) {
    for (const int code : {-1, 0, 17, 45, 46, 1000, keycode::unknown})
        for (const bool shift : {false, true}) EXPECT_EQ(FallbackKeyTable::characters(code, shift), "") << code;
    EXPECT_EQ(FallbackKeyTable::characters(18, true), "!");
    EXPECT_EQ(FallbackKeyTable::characters(44, false), "/");
}

TEST(TypedText, HoldsBackOnlyWhatMayBeTheNextKeyOfATrigger) {
    using enum KeyInterest;
    const std::pair<const char*, KeyInterest> cases[] = {
        {"a", nothing},
        {"/", nextSlash},
        {"a/", nextSlash},
        {"/a", nothing},
        {"http:/", nothing},
        {"//", terminators},
        {"x //no", terminators},
        {"x //NOTE", terminators},
        {"http://no", nothing},
        {"///", nothing},
        {"///no", nothing},
        {"//notee", nothing},
        {"//notee\b", terminators},
        {"//x\b", terminators},
        {"//\b", nextSlash},
        {"//note ", nothing},
        {"//x", nothing},
        {"a//b c//cop", terminators},
        {"//note/", nextSlash},
        {"//\u00e9", nothing},
        {"//reminders", terminators},
    };
    for (const auto& [typed, want] : cases) {
        Model model;
        model.type(typed);
        EXPECT_EQ(model.typed.interest(), want) << typed;
    }
}

TEST(TypedText, KeepsTheLastHundredCharacters) {
    Model model;
    for (int i = 0; i < 150; ++i) model.type(i % 2 ? "\u00e4" : "x");
    EXPECT_EQ(codePointCount(model.typed.text()), 100U);
    model.key(0, std::string(1000, 'y') + "//note");
    EXPECT_EQ(model.typed.text().size(), 100U);
    EXPECT_TRUE(model.type("\n"));
}

TEST(TypedText, DeleteTakesWhatEveryFieldTakes) {
    Model model;
    model.type("\b"); // Nothing is known that it could take.
    model.type("a\u00e9\b");
    EXPECT_EQ(model.typed.text(), "a");
    // A family of three is one character of several scalars: some fields take the last, others all of it.
    for (const char* made : {"\U0001F468\u200D\U0001F469\u200D\U0001F467", "e\u0301"}) {
        model.type("before ");
        model.key(0, made);
        model.type("\b");
        EXPECT_EQ(model.typed.text(), "") << made;
    }
    // What was deleted takes no room any more.
    model.type(std::string(60, 'x') + std::string(50, '\b') + std::string(60, 'y'));
    EXPECT_EQ(model.typed.text(), std::string(10, 'x') + std::string(60, 'y'));
}

// The document keeps it, so nothing before it may be taken for text that was followed.
TEST(TypedText, CutsATriggerThatItsBoundaryForbidsAndKnowsNothingBeforeIt) {
    Model model;
    EXPECT_FALSE(model.type("http://note "));
    EXPECT_EQ(model.typed.text(), " ");
    EXPECT_FALSE(model.type("///note \b/note "));
    EXPECT_TRUE(model.type("//note "));
}

TEST(TypedText, ResumesAFieldWithinTwoMinutes) {
    const std::pair<int, const char*> cases[] = {{120, "//no"}, {121, ""}};
    for (const auto& [seconds, want] : cases) {
        Model model;
        model.typed.focusChanged(fieldNamed("first"));
        model.type("//no");
        model.typed.focusChanged(fieldNamed("second"));
        EXPECT_EQ(model.typed.text(), "");
        model.type("else");
        model.clock.advance(std::chrono::seconds(seconds));
        model.typed.focusChanged(fieldNamed("first"));
        EXPECT_EQ(model.typed.text(), want) << seconds << " s";
    }
}

TEST(TypedText, RetainsTwoFieldsAndIgnoresMenus) {
    Model model;
    for (const char* name : {"first", "second", "third", "fourth"}) {
        model.typed.focusChanged(fieldNamed(name));
        model.type(name);
        model.clock.advance(std::chrono::seconds(1));
    }
    FocusFingerprint menu = fieldNamed("File");
    menu.role = "AXMenuItem";
    model.typed.focusChanged(menu);
    EXPECT_EQ(model.typed.text(), "fourth");
    EXPECT_FALSE(model.typed.restoreIfMatching(fieldNamed("first"))) << "two newer ones took its place";
    EXPECT_TRUE(model.typed.restoreIfMatching(fieldNamed("second")));
    EXPECT_EQ(model.typed.text(), "second");
}
} // namespace
} // namespace snipwren
