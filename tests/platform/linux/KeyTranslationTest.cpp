#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include "platform/KeyEvent.h"
#include "platform/linux/KeyCodeTable.h"
#include "platform/linux/TriggerArming.h"

namespace snipwren {
namespace {
TEST(KeyCodeTable, GoesBothWaysForEveryKeyThatHasOne) {
    int known = 0;
    for (int code = 0; code < 128; ++code) {
        const std::string_view position = KeyCodeTable::positionOf(code);
        const xkb_keysym_t symbol = KeyCodeTable::symbolOf(code);
        EXPECT_TRUE(position.empty() || KeyCodeTable::forPosition(position) == code) << position;
        EXPECT_TRUE(symbol == XKB_KEY_NoSymbol || KeyCodeTable::forSymbol(symbol) == code) << code;
        EXPECT_TRUE(position.empty() || symbol == XKB_KEY_NoSymbol) << code << " is said twice";
        known += !position.empty() || symbol != XKB_KEY_NoSymbol ? 1 : 0;
    }
    EXPECT_GT(known, 95);
    // The digits that select suggestions do not stand in the order of their codes.
    const std::string_view digits[] = {"AE01", "AE02", "AE03", "AE04", "AE06", "AE05"};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(KeyCodeTable::positionOf(18 + i), digits[i]);
    EXPECT_EQ(KeyCodeTable::forPosition("NOPE"), keycode::unknown);
}

TEST(TriggerArming, HoldsBackOnlyWhatMayBeTheNextKeyOfATrigger) {
    struct Case {
        const char* typed;
        bool slash;
        bool terminators;
    };
    const Case cases[] = {
        {"", false, false},
        {"a", false, false},
        {"/", true, false},
        {"a/", true, false},
        {"http:/", false, false},
        {"//", false, true},
        {"x //no", false, true},
        {"x //NOTE", false, true},
        {"http://no", false, false},
        {"///no", false, false},
        {"//notee", false, false},
        {"//note ", false, false},
        {"//x", false, false},
        {"a//b c//cop", false, true},
        {"//note/", true, false},
        {"//\u00e9", false, false},
        {"//no\xEF\x9C\x82te", false, false},
    };
    for (const Case& c : cases) {
        TriggerArming arming({"note", "copy"});
        arming.typed(c.typed);
        EXPECT_EQ(arming.wantsSlash(), c.slash) << c.typed;
        EXPECT_EQ(arming.wantsTerminators(), c.terminators) << c.typed;
    }
}

TEST(TriggerArming, FollowsCorrectionsRestoredTextAndLongText) {
    TriggerArming arming({"note"});
    for (int i = 0; i < 500; ++i) arming.typed("word ");
    arming.typed("//nox");
    EXPECT_FALSE(arming.wantsTerminators());
    arming.deleted();
    EXPECT_TRUE(arming.wantsTerminators());
    arming.clear();
    arming.deleted();
    EXPECT_FALSE(arming.wantsTerminators());
    arming.replace("Hello //no");
    EXPECT_TRUE(arming.wantsTerminators());

    TriggerArming anyWord({});
    anyWord.typed("//whatever");
    EXPECT_TRUE(anyWord.wantsTerminators());
    anyWord.typed(" ");
    EXPECT_FALSE(anyWord.wantsTerminators());
}
} // namespace
} // namespace snipwren
