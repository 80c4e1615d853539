#include "hosts/linux/x11/X11SyntheticKeyboard.h"

#include <thread>

#include <xcb/xtest.h>
// The header names a member "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "base/Text.h"

namespace snipwren {
X11SyntheticKeyboard::X11SyntheticKeyboard(OwnKeys& ownKeys, std::string display)
    : ownKeys_(ownKeys),
      display_(std::move(display)) {}

bool X11SyntheticKeyboard::connect() {
    if (connection_ && xcb_connection_has_error(connection_.get())) {
        keyboard_.reset();
        connection_.reset();
    }
    if (!connection_) {
        connection_ = connectToDisplay(display_.empty() ? nullptr : display_.c_str());
        if (!connection_) return false;
        const auto* const extension = xcb_get_extension_data(connection_.get(), &xcb_test_id);
        keyboard_ = extension && extension->present ? XkbKeyboard::open(connection_.get()) : nullptr;
        if (keyboard_) keyboard_->selectEvents();
    }
    if (!keyboard_) {
        connection_.reset();
        return false;
    }
    bool stale = false;
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
        if ((event->response_type & 0x7f) != keyboard_->eventBase()) continue;
        if (event->pad0 == XCB_XKB_STATE_NOTIFY) {
            keyboard_->update(reinterpret_cast<const xcb_xkb_state_notify_event_t&>(*event));
        } else {
            stale = true;
        }
    }
    return !stale || keyboard_->reload();
}

bool X11SyntheticKeyboard::waitForModifiers() {
    constexpr std::uint8_t shortcutModifiers = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
    const auto end = std::chrono::steady_clock::now() + modifierPatience;
    for (;;) {
        const XcbOwned<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(
            connection_.get(), xcb_xkb_get_state(connection_.get(), XCB_XKB_ID_USE_CORE_KBD), nullptr));
        if (!state) return false;
        if ((state->baseMods & shortcutModifiers) == 0) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool X11SyntheticKeyboard::post(const XkbKeyboard::Typing& typing) {
    xcb_connection_t* const c = connection_.get();
    const auto fake = [c](std::uint8_t type, std::uint8_t keycode) {
        xcb_test_fake_input(c, type, keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    };
    for (const std::uint8_t modifier : typing.modifierKeys) {
        ownKeys_.expect(modifier);
        fake(XCB_KEY_PRESS, modifier);
    }
    ownKeys_.expect(typing.keycode);
    fake(XCB_KEY_PRESS, typing.keycode);
    fake(XCB_KEY_RELEASE, typing.keycode);
    for (auto it = typing.modifierKeys.rbegin(); it != typing.modifierKeys.rend(); ++it) fake(XCB_KEY_RELEASE, *it);
    roundTrip(c);
    ownKeys_.waitUntilPassed(passingPatience);
    return !xcb_connection_has_error(c);
}

bool X11SyntheticKeyboard::pressKey(int keyCode, const Modifiers& modifiers) {
    const std::lock_guard lock(mutex_);
    if (!connect()) return false;
    const auto keycode = keyboard_->xKeycode(keyCode);
    const auto held = keyboard_->modifierKeys(modifiers);
    return keycode && held && waitForModifiers() && post({*keycode, *held});
}

bool X11SyntheticKeyboard::typeText(const std::string& text) {
    const std::lock_guard lock(mutex_);
    if (!connect()) return false;
    std::vector<XkbKeyboard::Typing> keys;
    for (std::size_t offset = 0; offset < text.size();) {
        auto typing = keyboard_->typingOf(nextScalar(text, offset));
        if (!typing) return false;
        keys.push_back(std::move(*typing));
    }
    if (!waitForModifiers()) return false;
    for (const XkbKeyboard::Typing& key : keys) {
        if (!post(key)) return false;
    }
    return true;
}
} // namespace snipwren
