#include "hosts/linux/x11/KeyCodeTable.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include "platform/KeyEvent.h"

namespace snipwren {
namespace {
struct Position {
    std::string_view name;
    int code;
};
constexpr Position positions[] = {
    {"AE01", 18}, {"AE02", 19}, {"AE03", 20}, {"AE04", 21}, {"AE05", 23}, {"AE06", 22}, {"AE07", 26}, {"AE08", 28},
    {"AE09", 25}, {"AE10", 29}, {"AE11", 27}, {"AE12", 24}, {"TLDE", 50}, {"AD01", 12}, {"AD02", 13}, {"AD03", 14},
    {"AD04", 15}, {"AD05", 17}, {"AD06", 16}, {"AD07", 32}, {"AD08", 34}, {"AD09", 31}, {"AD10", 35}, {"AD11", 33},
    {"AD12", 30}, {"AC01", 0},  {"AC02", 1},  {"AC03", 2},  {"AC04", 3},  {"AC05", 5},  {"AC06", 4},  {"AC07", 38},
    {"AC08", 40}, {"AC09", 37}, {"AC10", 41}, {"AC11", 39}, {"BKSL", 42}, {"AC12", 42}, {"LSGT", 10}, {"AB01", 6},
    {"AB02", 7},  {"AB03", 8},  {"AB04", 9},  {"AB05", 11}, {"AB06", 45}, {"AB07", 46}, {"AB08", 43}, {"AB09", 47},
    {"AB10", 44}, {"KP0", 82},  {"KP1", 83},  {"KP2", 84},  {"KP3", 85},  {"KP4", 86},  {"KP5", 87},  {"KP6", 88},
    {"KP7", 89},  {"KP8", 91},  {"KP9", 92},  {"KPDL", 65}, {"KPMU", 67}, {"KPAD", 69}, {"KPDV", 75}, {"KPSU", 78},
};

struct Symbol {
    xkb_keysym_t symbol;
    int code;
    /// A private-use character of the range that function keys are given, in UTF-8.
    std::string_view caret = {};
};
// The first entry of a code is the one that a key press of our own uses.
constexpr Symbol symbols[] = {
    {XKB_KEY_Return, keycode::returnKey},
    {XKB_KEY_Tab, keycode::tab},
    {XKB_KEY_ISO_Left_Tab, keycode::tab},
    {XKB_KEY_space, keycode::space},
    {XKB_KEY_BackSpace, keycode::deleteKey},
    {XKB_KEY_Escape, keycode::escape},
    {XKB_KEY_Super_L, keycode::command},
    {XKB_KEY_Super_R, keycode::rightCommand},
    {XKB_KEY_Shift_L, keycode::shift},
    {XKB_KEY_Shift_R, keycode::rightShift},
    {XKB_KEY_Caps_Lock, keycode::capsLock},
    {XKB_KEY_Alt_L, keycode::option},
    {XKB_KEY_Meta_L, keycode::option},
    {XKB_KEY_Alt_R, keycode::rightOption},
    {XKB_KEY_Meta_R, keycode::rightOption},
    {XKB_KEY_ISO_Level3_Shift, keycode::rightOption},
    {XKB_KEY_Control_L, keycode::control},
    {XKB_KEY_Control_R, keycode::rightControl},
    {XKB_KEY_KP_Enter, keycode::keypadEnter},
    {XKB_KEY_Left, keycode::leftArrow, "\uF702"},
    {XKB_KEY_KP_Left, keycode::leftArrow, "\uF702"},
    {XKB_KEY_Right, keycode::rightArrow, "\uF703"},
    {XKB_KEY_KP_Right, keycode::rightArrow, "\uF703"},
    {XKB_KEY_Down, keycode::downArrow, "\uF701"},
    {XKB_KEY_KP_Down, keycode::downArrow, "\uF701"},
    {XKB_KEY_Up, keycode::upArrow, "\uF700"},
    {XKB_KEY_KP_Up, keycode::upArrow, "\uF700"},
    {XKB_KEY_Delete, 117, "\uF728"},
    {XKB_KEY_KP_Delete, 117, "\uF728"},
    {XKB_KEY_Home, 115, "\uF729"},
    {XKB_KEY_KP_Home, 115, "\uF729"},
    {XKB_KEY_End, 119, "\uF72B"},
    {XKB_KEY_KP_End, 119, "\uF72B"},
    {XKB_KEY_Prior, 116, "\uF72C"},
    {XKB_KEY_KP_Prior, 116, "\uF72C"},
    {XKB_KEY_Next, 121, "\uF72D"},
    {XKB_KEY_KP_Next, 121, "\uF72D"},
    {XKB_KEY_F1, 122},
    {XKB_KEY_F2, 120},
    {XKB_KEY_F3, 99},
    {XKB_KEY_F4, 118},
    {XKB_KEY_F5, 96},
    {XKB_KEY_F6, 97},
    {XKB_KEY_F7, 98},
    {XKB_KEY_F8, 100},
    {XKB_KEY_F9, 101},
    {XKB_KEY_F10, 109},
    {XKB_KEY_F11, 103},
    {XKB_KEY_F12, 111},
};

const Symbol* find(xkb_keysym_t symbol) {
    for (const Symbol& entry : symbols) {
        if (entry.symbol == symbol) return &entry;
    }
    return nullptr;
}
} // namespace

int KeyCodeTable::forPosition(std::string_view xkbName) {
    for (const Position& entry : positions) {
        if (entry.name == xkbName) return entry.code;
    }
    return keycode::unknown;
}

int KeyCodeTable::forSymbol(xkb_keysym_t symbol) {
    const Symbol* const entry = find(symbol);
    return entry ? entry->code : keycode::unknown;
}

std::string_view KeyCodeTable::positionOf(int keyCode) {
    for (const Position& entry : positions) {
        if (entry.code == keyCode) return entry.name;
    }
    return {};
}

xkb_keysym_t KeyCodeTable::symbolOf(int keyCode) {
    for (const Symbol& entry : symbols) {
        if (entry.code == keyCode) return entry.symbol;
    }
    return XKB_KEY_NoSymbol;
}

std::string_view KeyCodeTable::caretCharacters(xkb_keysym_t symbol) {
    const Symbol* const entry = find(symbol);
    return entry ? entry->caret : std::string_view();
}

bool KeyCodeTable::isModifier(xkb_keysym_t symbol) {
    return (symbol >= XKB_KEY_Shift_L && symbol <= XKB_KEY_Hyper_R)
           || (symbol >= XKB_KEY_ISO_Lock && symbol <= XKB_KEY_ISO_Level5_Lock) || symbol == XKB_KEY_Mode_switch
           || symbol == XKB_KEY_Num_Lock;
}
} // namespace snipwren
