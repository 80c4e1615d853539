#pragma once

#include <string_view>

namespace snipwren {
/// Codes of the physical keys that behaviour hangs on. Every host translates its own codes into these.
namespace keycode {
inline constexpr int returnKey = 36;
inline constexpr int tab = 48;
inline constexpr int space = 49;
inline constexpr int deleteKey = 51;
inline constexpr int escape = 53;
inline constexpr int rightCommand = 54;
inline constexpr int command = 55;
inline constexpr int shift = 56;
inline constexpr int capsLock = 57;
inline constexpr int option = 58;
inline constexpr int control = 59;
inline constexpr int rightShift = 60;
inline constexpr int rightOption = 61;
inline constexpr int rightControl = 62;
inline constexpr int function = 63;
inline constexpr int keypadEnter = 76;
inline constexpr int leftArrow = 123;
inline constexpr int rightArrow = 124;
inline constexpr int downArrow = 125;
inline constexpr int upArrow = 126;
inline constexpr int digit0 = 29;
/// A key that is none of the known ones.
inline constexpr int unknown = 65535;
} // namespace keycode

struct Modifiers {
    bool control = false;
    bool shift = false;
    bool option = false;
    bool command = false;
    friend bool operator==(const Modifiers&, const Modifiers&) = default;
};

/// One key going down.
struct KeyEvent {
    int keyCode = keycode::unknown;
    /// UTF-8 of what the key types under the current layout, empty when nothing; valid during the call only. Keys that
    /// move the caret carry a private-use character (U+F700 to U+F74F), so that text around it never looks contiguous.
    std::string_view characters;
    Modifiers modifiers;
    bool isRepeat = false;
    /// The application has the key already, or gets it whatever the verdict: swallowing is not possible. A trigger that
    /// such a key ends has one more character in the document (with Return: whatever the application did with it).
    bool reachedHost = false;
};

/// A key together with the modifiers held, locks aside.
struct KeyChord {
    int keyCode = keycode::unknown;
    Modifiers modifiers;
    friend bool operator==(const KeyChord&, const KeyChord&) = default;
};
} // namespace snipwren
