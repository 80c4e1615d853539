#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

#include "hosts/linux/x11/XcbTypes.h"
#include "platform/KeyEvent.h"

struct xcb_xkb_state_notify_event_t;

namespace snipwren {
/// A key with the modifiers of the core protocol that have to be held with it.
struct KeyCombination {
    std::uint8_t keycode = 0;
    std::uint8_t modifiers = 0;
    friend auto operator<=>(const KeyCombination&, const KeyCombination&) = default;
};

/// The layout of the session's keyboard and the state of its modifiers and dead keys: turns X key codes into what they
/// type. Follows the server through the events handed to it. One thread.
class XkbKeyboard {
public:
    struct Press {
        int keyCode = keycode::unknown;
        std::string_view characters; ///< Valid until the next press.
        Modifiers modifiers;
        bool isModifier = false;
        /// Nothing is typed yet: the key belongs to a composed character.
        bool isComposing = false;
    };
    /// A key and the modifier keys to hold for typing one character.
    struct Typing {
        std::uint8_t keycode = 0;
        std::vector<std::uint8_t> modifierKeys;
    };

    /// None when the server has no XKB keyboard.
    static std::unique_ptr<XkbKeyboard> open(xcb_connection_t* connection);
    ~XkbKeyboard();
    XkbKeyboard(const XkbKeyboard&) = delete;
    XkbKeyboard& operator=(const XkbKeyboard&) = delete;

    /// Asks the server to tell of changes. Called once, by connections that read events.
    void selectEvents();
    std::uint8_t eventBase() const { return eventBase_; }
    /// The device whose name has to stand in grabs.
    std::uint16_t masterDevice() const { return static_cast<std::uint16_t>(device_); }
    /// Reads the layout and the state afresh; false when the server did not answer.
    bool reload();
    void update(const xcb_xkb_state_notify_event_t& event);

    /// What the key would mean now. A dead key or the first keys of a Compose sequence give no characters and no code.
    Press press(std::uint8_t keycode);
    void forgetComposing();
    /// The core protocol's modifiers in effect.
    std::uint8_t modifiers() const;
    /// Those that keys held down give, without locks.
    std::uint8_t heldModifiers() const;
    std::uint8_t lockedModifiers() const;
    bool isModifierKey(std::uint8_t keycode) const { return modifierKeys_.test(keycode); }
    const std::bitset<256>& modifierKeys() const { return modifierKeys_; }
    bool repeats(std::uint8_t keycode) const { return xkb_keymap_key_repeats(keymap_, keycode) == 1; }
    /// After how many milliseconds a held key repeats; 0 when none does.
    std::uint32_t repeatDelay() const { return repeatDelay_; }

    /// Every combination that types a slash under any of the layouts.
    std::vector<KeyCombination> slashCombinations() const;
    /// Space and Return, plain and with Shift.
    std::vector<KeyCombination> terminatorCombinations() const;
    std::vector<KeyCombination> combinations(const KeyChord& chord) const;
    /// All sets of locks (none, Caps, Num, both) for each.
    std::array<std::uint8_t, 4> lockMasks() const;

    std::optional<std::uint8_t> xKeycode(int keyCode) const;
    /// The keys to hold; none when the layout lacks one of them.
    std::optional<std::vector<std::uint8_t>> modifierKeys(const Modifiers& modifiers) const;
    std::optional<Typing> typingOf(char32_t character) const;

private:
    XkbKeyboard(xcb_connection_t* connection, std::uint8_t eventBase);
    std::optional<std::uint8_t> keycodeOfSymbol(xkb_keysym_t symbol) const;
    std::vector<std::uint8_t> keycodesOfSymbol(xkb_keysym_t symbol) const;
    void loadCompose();
    void readModifierMap();
    void readRepeatDelay();
    int codeOf(xkb_keycode_t keycode, xkb_keysym_t symbol) const;

    xcb_connection_t* connection_;
    std::uint8_t eventBase_;
    std::int32_t device_ = 0;
    xkb_context* context_ = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state_ = nullptr;
    xkb_compose_table* composeTable_ = nullptr;
    xkb_compose_state* compose_ = nullptr;
    std::bitset<256> modifierKeys_;
    std::uint8_t numLockMask_ = 16;
    std::uint32_t repeatDelay_ = 0;
    std::array<char, 128> text_{};
};
} // namespace snipwren
