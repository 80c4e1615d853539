#include "hosts/linux/x11/XkbKeyboard.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <set>

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon-x11.h>
// The header names a member "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "hosts/linux/x11/KeyCodeTable.h"

namespace snipwren {
namespace {
constexpr std::uint8_t shiftMask = 1;
constexpr std::uint8_t lockMask = 2;
constexpr std::uint8_t controlMask = 4;
constexpr std::uint8_t altMask = 8;
constexpr std::uint8_t superMask = 64;

const char* composeLocale() {
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value && *value) return value;
    }
    return "C";
}
} // namespace

XkbKeyboard::XkbKeyboard(xcb_connection_t* connection, std::uint8_t eventBase)
    : connection_(connection),
      eventBase_(eventBase) {}

XkbKeyboard::~XkbKeyboard() {
    xkb_compose_state_unref(compose_);
    xkb_compose_table_unref(composeTable_);
    xkb_state_unref(state_);
    xkb_keymap_unref(keymap_);
    xkb_context_unref(context_);
}

std::unique_ptr<XkbKeyboard> XkbKeyboard::open(xcb_connection_t* connection) {
    std::uint8_t eventBase = 0;
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &eventBase, nullptr))
        return nullptr;
    std::unique_ptr<XkbKeyboard> keyboard(new XkbKeyboard(connection, eventBase));
    keyboard->context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    keyboard->device_ = xkb_x11_get_core_keyboard_device_id(connection);
    if (!keyboard->context_ || keyboard->device_ < 0 || !keyboard->reload()) return nullptr;
    keyboard->loadCompose();
    return keyboard;
}

void XkbKeyboard::selectEvents() {
    const auto events =
        static_cast<std::uint16_t>(XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY
                                   | XCB_XKB_EVENT_TYPE_STATE_NOTIFY | XCB_XKB_EVENT_TYPE_CONTROLS_NOTIFY);
    const auto parts = static_cast<std::uint16_t>(XCB_XKB_STATE_PART_MODIFIER_BASE | XCB_XKB_STATE_PART_MODIFIER_LATCH
                                                  | XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_BASE
                                                  | XCB_XKB_STATE_PART_GROUP_LATCH | XCB_XKB_STATE_PART_GROUP_LOCK);
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = details.stateDetails = parts;
    details.affectCtrls = details.ctrlDetails = XCB_XKB_BOOL_CTRL_REPEAT_KEYS;
    xcb_xkb_select_events_aux(connection_, static_cast<xcb_xkb_device_spec_t>(device_), events, 0, 0, 0xff, 0xff,
                              &details);
}

bool XkbKeyboard::reload() {
    xkb_keymap* const keymap =
        xkb_x11_keymap_new_from_device(context_, connection_, device_, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap) return false;
    xkb_state* const state = xkb_x11_state_new_from_device(keymap, connection_, device_);
    if (!state) {
        xkb_keymap_unref(keymap);
        return false;
    }
    xkb_state_unref(state_);
    xkb_keymap_unref(keymap_);
    keymap_ = keymap;
    state_ = state;
    readModifierMap();
    readRepeatDelay();
    return true;
}

void XkbKeyboard::loadCompose() {
    // Without a table for the locale there are no dead keys; every other key still types.
    composeTable_ = xkb_compose_table_new_from_locale(context_, composeLocale(), XKB_COMPOSE_COMPILE_NO_FLAGS);
    if (composeTable_) compose_ = xkb_compose_state_new(composeTable_, XKB_COMPOSE_STATE_NO_FLAGS);
}

void XkbKeyboard::readModifierMap() {
    const XcbOwned<xcb_get_modifier_mapping_reply_t> reply(
        xcb_get_modifier_mapping_reply(connection_, xcb_get_modifier_mapping(connection_), nullptr));
    if (!reply) return;
    modifierKeys_.reset();
    const std::vector<std::uint8_t> numLocks = keycodesOfSymbol(XKB_KEY_Num_Lock);
    const xcb_keycode_t* const keys = xcb_get_modifier_mapping_keycodes(reply.get());
    for (int i = 0; i < 8 * reply->keycodes_per_modifier; ++i) {
        if (keys[i] == 0) continue;
        modifierKeys_.set(keys[i]);
        if (std::find(numLocks.begin(), numLocks.end(), keys[i]) != numLocks.end())
            numLockMask_ = static_cast<std::uint8_t>(1 << (i / reply->keycodes_per_modifier));
    }
}

void XkbKeyboard::readRepeatDelay() {
    const XcbOwned<xcb_xkb_get_controls_reply_t> reply(xcb_xkb_get_controls_reply(
        connection_, xcb_xkb_get_controls(connection_, static_cast<xcb_xkb_device_spec_t>(device_)), nullptr));
    repeatDelay_ = reply && (reply->enabledControls & XCB_XKB_BOOL_CTRL_REPEAT_KEYS) != 0 ? reply->repeatDelay : 0;
}

void XkbKeyboard::update(const xcb_xkb_state_notify_event_t& event) {
    xkb_state_update_mask(state_, event.baseMods, event.latchedMods, event.lockedMods,
                          static_cast<xkb_layout_index_t>(event.baseGroup),
                          static_cast<xkb_layout_index_t>(event.latchedGroup), event.lockedGroup);
}

std::uint8_t XkbKeyboard::modifiers() const {
    return static_cast<std::uint8_t>(xkb_state_serialize_mods(state_, XKB_STATE_MODS_EFFECTIVE) & 0xff);
}

std::uint8_t XkbKeyboard::heldModifiers() const {
    return static_cast<std::uint8_t>(xkb_state_serialize_mods(state_, XKB_STATE_MODS_DEPRESSED) & 0xff);
}

std::uint8_t XkbKeyboard::lockedModifiers() const {
    return static_cast<std::uint8_t>(xkb_state_serialize_mods(state_, XKB_STATE_MODS_LOCKED) & 0xff);
}

int XkbKeyboard::codeOf(xkb_keycode_t keycode, xkb_keysym_t symbol) const {
    if (const int code = KeyCodeTable::forSymbol(symbol); code != keycode::unknown) return code;
    const char* const cName = xkb_keymap_key_get_name(keymap_, keycode);
    const std::string_view name = cName ? cName : "";
    // What the key is without modifiers, so that Shift+Escape is still Escape. The keypad's numbers are not its arrows.
    if (!name.starts_with("KP")) {
        const xkb_layout_index_t layout = xkb_state_key_get_layout(state_, keycode);
        const xkb_keysym_t* plain = nullptr;
        if (xkb_keymap_key_get_syms_by_level(keymap_, keycode, layout, 0, &plain) == 1) {
            const int code = KeyCodeTable::forSymbol(plain[0]);
            // AltGr+Space types something else than a blank and ends no word.
            if (code == keycode::space) return keycode::unknown;
            if (code != keycode::unknown) return code;
        }
    }
    return KeyCodeTable::forPosition(name);
}

XkbKeyboard::Press XkbKeyboard::press(std::uint8_t keycode) {
    Press press;
    const xkb_keysym_t symbol = xkb_state_key_get_one_sym(state_, keycode);
    press.isModifier = KeyCodeTable::isModifier(symbol) || isModifierKey(keycode);
    const std::uint8_t active = modifiers();
    press.modifiers = {.control = (active & controlMask) != 0,
                       .shift = (active & shiftMask) != 0,
                       .option = (active & altMask) != 0,
                       .command = (active & superMask) != 0};
    press.keyCode = codeOf(keycode, symbol);
    if (press.isModifier) return press;
    press.characters = KeyCodeTable::caretCharacters(symbol);
    if (!press.characters.empty()) return press;

    if (compose_ && xkb_compose_state_feed(compose_, symbol) == XKB_COMPOSE_FEED_ACCEPTED) {
        switch (xkb_compose_state_get_status(compose_)) {
        case XKB_COMPOSE_COMPOSING:
        case XKB_COMPOSE_CANCELLED:
            press.keyCode = keycode::unknown;
            press.isComposing = xkb_compose_state_get_status(compose_) == XKB_COMPOSE_COMPOSING;
            return press;
        case XKB_COMPOSE_COMPOSED: {
            const int length = xkb_compose_state_get_utf8(compose_, text_.data(), text_.size());
            press.keyCode = keycode::unknown;
            press.characters = {text_.data(), std::min(static_cast<std::size_t>(length), text_.size() - 1)};
            return press;
        }
        case XKB_COMPOSE_NOTHING: break;
        }
    }
    const int length = xkb_state_key_get_utf8(state_, keycode, text_.data(), text_.size());
    if (length > 0) press.characters = {text_.data(), std::min(static_cast<std::size_t>(length), text_.size() - 1)};
    return press;
}

void XkbKeyboard::forgetComposing() {
    if (compose_) xkb_compose_state_reset(compose_);
}

std::array<std::uint8_t, 4> XkbKeyboard::lockMasks() const {
    return {0, lockMask, numLockMask_, static_cast<std::uint8_t>(lockMask | numLockMask_)};
}

std::vector<KeyCombination> XkbKeyboard::slashCombinations() const {
    std::set<KeyCombination> found;
    const auto highest = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap_), 255);
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap_); key <= highest; ++key) {
        for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts_for_key(keymap_, key); ++layout) {
            const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap_, key, layout);
            for (xkb_level_index_t level = 0; level < levels; ++level) {
                const xkb_keysym_t* typed = nullptr;
                if (xkb_keymap_key_get_syms_by_level(keymap_, key, layout, level, &typed) != 1) continue;
                if (typed[0] != XKB_KEY_slash && typed[0] != XKB_KEY_KP_Divide) continue;
                xkb_mod_mask_t masks[16];
                const std::size_t count = xkb_keymap_key_get_mods_for_level(keymap_, key, layout, level, masks, 16);
                for (std::size_t i = 0; i < count; ++i) {
                    const auto mask = static_cast<std::uint8_t>(masks[i] & 0xff);
                    if ((mask & (controlMask | altMask | superMask)) != 0) continue;
                    for (const std::uint8_t locks : lockMasks())
                        found.insert({static_cast<std::uint8_t>(key), static_cast<std::uint8_t>(mask | locks)});
                }
            }
        }
    }
    return {found.begin(), found.end()};
}

std::vector<KeyCombination> XkbKeyboard::terminatorCombinations() const {
    std::vector<KeyCombination> result;
    for (const auto symbol : std::initializer_list<xkb_keysym_t>{XKB_KEY_space, XKB_KEY_Return}) {
        for (const std::uint8_t key : keycodesOfSymbol(symbol)) {
            for (const std::uint8_t locks : lockMasks()) {
                result.push_back({key, locks});
                result.push_back({key, static_cast<std::uint8_t>(locks | shiftMask)});
            }
        }
    }
    return result;
}

std::vector<KeyCombination> XkbKeyboard::combinations(const KeyChord& chord) const {
    std::vector<KeyCombination> result;
    const auto key = xKeycode(chord.keyCode);
    if (!key) return result;
    const Modifiers& m = chord.modifiers;
    const int mask = (m.shift ? shiftMask : 0) | (m.control ? controlMask : 0) | (m.option ? altMask : 0)
                     | (m.command ? superMask : 0);
    for (const std::uint8_t locks : lockMasks()) result.push_back({*key, static_cast<std::uint8_t>(mask | locks)});
    return result;
}

std::vector<std::uint8_t> XkbKeyboard::keycodesOfSymbol(xkb_keysym_t symbol) const {
    std::vector<std::uint8_t> found;
    const auto highest = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap_), 255);
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap_); key <= highest; ++key) {
        const xkb_keysym_t* plain = nullptr;
        if (xkb_keymap_num_layouts_for_key(keymap_, key) > 0
            && xkb_keymap_key_get_syms_by_level(keymap_, key, 0, 0, &plain) == 1 && plain[0] == symbol)
            found.push_back(static_cast<std::uint8_t>(key));
    }
    return found;
}

std::optional<std::uint8_t> XkbKeyboard::keycodeOfSymbol(xkb_keysym_t symbol) const {
    const std::vector<std::uint8_t> found = keycodesOfSymbol(symbol);
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::optional<std::uint8_t> XkbKeyboard::xKeycode(int keyCode) const {
    if (const xkb_keysym_t symbol = KeyCodeTable::symbolOf(keyCode); symbol != XKB_KEY_NoSymbol)
        return keycodeOfSymbol(symbol);
    const std::string name(KeyCodeTable::positionOf(keyCode));
    if (name.empty()) return std::nullopt;
    const xkb_keycode_t key = xkb_keymap_key_by_name(keymap_, name.c_str());
    return key == XKB_KEYCODE_INVALID || key > 255 ? std::nullopt : std::optional(static_cast<std::uint8_t>(key));
}

std::optional<std::vector<std::uint8_t>> XkbKeyboard::modifierKeys(const Modifiers& modifiers) const {
    std::vector<std::uint8_t> keys;
    const std::pair<bool, xkb_keysym_t> all[] = {{modifiers.control, XKB_KEY_Control_L},
                                                 {modifiers.option, XKB_KEY_Alt_L},
                                                 {modifiers.command, XKB_KEY_Super_L},
                                                 {modifiers.shift, XKB_KEY_Shift_L}};
    for (const auto& [isHeld, symbol] : all) {
        if (!isHeld) continue;
        const auto key = keycodeOfSymbol(symbol);
        if (!key) return std::nullopt;
        keys.push_back(*key);
    }
    return keys;
}

std::optional<XkbKeyboard::Typing> XkbKeyboard::typingOf(char32_t character) const {
    const xkb_keysym_t wanted = character == U'\n'   ? XKB_KEY_Return
                                : character == U'\t' ? XKB_KEY_Tab
                                                     : xkb_utf32_to_keysym(character);
    const xkb_mod_mask_t locked = xkb_state_serialize_mods(state_, XKB_STATE_MODS_LOCKED) & 0xff;
    const auto highest = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap_), 255);
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap_); key <= highest; ++key) {
        const xkb_layout_index_t layout = xkb_state_key_get_layout(state_, key);
        if (layout == XKB_LAYOUT_INVALID) continue;
        // Try the four ways to hold Shift and the third level's key on top of what is locked, and look at the outcome.
        for (const xkb_mod_mask_t held : {0U, 1U, 128U, 129U}) {
            xkb_state* const trial = xkb_state_new(keymap_);
            xkb_state_update_mask(trial, held, 0, locked, 0, 0, layout);
            const xkb_keysym_t typed = xkb_state_key_get_one_sym(trial, key);
            xkb_state_unref(trial);
            if (typed != wanted) continue;
            Typing typing{static_cast<std::uint8_t>(key), {}};
            const auto shift = keycodeOfSymbol(XKB_KEY_Shift_L);
            const auto third = keycodeOfSymbol(XKB_KEY_ISO_Level3_Shift);
            if ((held & 1) != 0 && shift) typing.modifierKeys.push_back(*shift);
            if ((held & 128) != 0 && third) typing.modifierKeys.push_back(*third);
            const std::size_t needed = (held & 1) + (held >> 7);
            if (typing.modifierKeys.size() == needed) return typing;
        }
    }
    return std::nullopt;
}
} // namespace snipwren
