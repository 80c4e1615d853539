#pragma once

#include <string_view>

#include <xkbcommon/xkbcommon.h>

namespace snipwren {
/// Translates between the keys of this system and the codes of platform/KeyEvent.h: keys that type by their position
/// (XKB's names: "AC01" is the first key of the row of letters), the others by their symbol.
class KeyCodeTable {
public:
    KeyCodeTable() = delete;
    /// keycode::unknown when the position has no code.
    static int forPosition(std::string_view xkbName);
    /// keycode::unknown for symbols that stand for no key of their own.
    static int forSymbol(xkb_keysym_t symbol);
    /// Empty when the code has no position.
    static std::string_view positionOf(int keyCode);
    static xkb_keysym_t symbolOf(int keyCode);
    /// What a key that moves the caret (or deletes forwards) hands on in place of text; empty for any other.
    static std::string_view caretCharacters(xkb_keysym_t symbol);
    static bool isModifier(xkb_keysym_t symbol);
};
} // namespace snipwren
