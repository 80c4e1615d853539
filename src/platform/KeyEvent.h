#pragma once

#include <string>
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
inline constexpr int home = 115;
inline constexpr int forwardDelete = 117;
inline constexpr int end = 119;
/// Pressing one types nothing and moves nothing.
constexpr bool isModifier(int keyCode) { return keyCode >= rightCommand && keyCode <= function; }
} // namespace keycode

/// The modifiers held. One that took part in what the key types (AltGr, Option on some systems) is not among them.
struct Modifiers {
    bool control = false;
    bool shift = false;
    bool option = false;
    bool command = false;
    /// Held for a command, not for text: what the application does with the key is unknown.
    bool makeShortcut() const { return control || option || command; }
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
    /// The key began or went on with a composed character (a dead key): nothing is typed yet.
    bool isComposing = false;
    /// The application has the key already, or gets it whatever the verdict: swallowing is not possible. A trigger that
    /// such a key ends has one more character in the document (with Return: whatever the application did with it).
    bool reachedHost = false;
};

/// The part of `characters` that is text: empty for control characters and for the private-use characters of keys that
/// move the caret.
inline std::string_view textOf(std::string_view characters) {
    if (characters.empty()) return {};
    const auto first = static_cast<unsigned char>(characters.front());
    if (first < 0x20 || first == 0x7F) return {};
    // U+E000 to U+F8FF in UTF-8: EE 80 80 to EF A3 BF.
    const bool isPrivate =
        first == 0xEE || (first == 0xEF && characters.size() > 1 && static_cast<unsigned char>(characters[1]) < 0xA4);
    return isPrivate ? std::string_view() : characters;
}

/// A key press that outlives its event: one that waits for its owner.
struct KeptKey {
    int keyCode = keycode::unknown;
    std::string characters;
    Modifiers modifiers;
    bool isComposing = false;

    /// Valid as long as this is.
    KeyEvent event() const {
        KeyEvent made;
        made.keyCode = keyCode;
        made.characters = characters;
        made.modifiers = modifiers;
        made.isComposing = isComposing;
        return made;
    }
};

/// A key together with the modifiers held, locks aside.
struct KeyChord {
    int keyCode = keycode::unknown;
    Modifiers modifiers;
    friend bool operator==(const KeyChord&, const KeyChord&) = default;
};
} // namespace snipwren
