#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include "hosts/linux/x11/KeyCodeTable.h"
#include "platform/KeyEvent.h"

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

TEST(KeyCodeTable, WhatIsNoTextNeverLooksLikeText) {
    for (const xkb_keysym_t symbol : std::initializer_list<xkb_keysym_t>{
             XKB_KEY_Left, XKB_KEY_KP_Left, XKB_KEY_Right, XKB_KEY_KP_Right, XKB_KEY_Up, XKB_KEY_KP_Up, XKB_KEY_Down,
             XKB_KEY_KP_Down, XKB_KEY_Home, XKB_KEY_KP_Home, XKB_KEY_End, XKB_KEY_KP_End, XKB_KEY_Prior,
             XKB_KEY_KP_Prior, XKB_KEY_Next, XKB_KEY_KP_Next, XKB_KEY_Delete, XKB_KEY_KP_Delete}) {
        EXPECT_NE(KeyCodeTable::caretCharacters(symbol), "") << symbol;
        EXPECT_EQ(textOf(KeyCodeTable::caretCharacters(symbol)), "") << symbol;
        EXPECT_FALSE(KeyCodeTable::isModifier(symbol)) << symbol;
    }
    for (const xkb_keysym_t symbol : std::initializer_list<xkb_keysym_t>{
             XKB_KEY_Shift_L, XKB_KEY_Shift_R, XKB_KEY_Control_L, XKB_KEY_Caps_Lock, XKB_KEY_Alt_R, XKB_KEY_Super_L,
             XKB_KEY_Hyper_R, XKB_KEY_ISO_Lock, XKB_KEY_ISO_Level3_Shift, XKB_KEY_ISO_Level5_Lock, XKB_KEY_Mode_switch,
             XKB_KEY_Num_Lock})
        EXPECT_TRUE(KeyCodeTable::isModifier(symbol)) << symbol;
    for (const xkb_keysym_t symbol : std::initializer_list<xkb_keysym_t>{XKB_KEY_a, XKB_KEY_space, XKB_KEY_Return,
                                                                         XKB_KEY_ISO_Left_Tab, XKB_KEY_dead_acute})
        EXPECT_FALSE(KeyCodeTable::isModifier(symbol)) << symbol;
}
} // namespace
} // namespace snipwren
