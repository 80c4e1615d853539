#include "platform/KeyEvent.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TEST(KeyEvent, TellsTextFromWhatKeysCarryBesides) {
    const std::pair<const char*, bool> cases[] = {
        {"", false},          {"a", true},      {" ", true},       {"~", true},
        {"\t", false},        {"\x1b", false},  {"\x7f", false},   {"\u00e9", true},
        {"\U0001F600", true}, {"\uD7FF", true}, {"\uE000", false}, {"\uF700", false},
        {"\uF8FF", false},    {"\uF900", true}, {"\uFB01", true},  {"\uFF0F", true},
    };
    for (const auto& [characters, isText] : cases)
        EXPECT_EQ(textOf(characters), isText ? characters : "") << characters;
}

TEST(KeyEvent, KnowsItsModifiers) {
    for (const int code :
         {keycode::command, keycode::rightCommand, keycode::shift, keycode::rightShift, keycode::option,
          keycode::rightOption, keycode::control, keycode::rightControl, keycode::capsLock, keycode::function})
        EXPECT_TRUE(keycode::isModifier(code)) << code;
    for (const int code : {keycode::escape, keycode::deleteKey, keycode::keypadEnter, 64, keycode::unknown})
        EXPECT_FALSE(keycode::isModifier(code)) << code;
    EXPECT_FALSE(Modifiers{.shift = true}.makeShortcut());
    const KeptKey kept{9, "v", {.control = true, .shift = true}};
    EXPECT_EQ(kept.event().modifiers, kept.modifiers);
    EXPECT_EQ(kept.event().characters, "v");
    for (const Modifiers& held : {Modifiers{.control = true}, Modifiers{.option = true}, Modifiers{.command = true}})
        EXPECT_TRUE(held.makeShortcut());
}
} // namespace
} // namespace snipwren
