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

} // namespace
} // namespace snipwren
