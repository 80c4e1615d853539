#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <poll.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include "base/Text.h"
#include "hosts/linux/x11/XcbTypes.h"

namespace snipwren {
/// A window that keeps what is typed into it, as a text field would, and counts how often it loses the focus. It reads
/// keys as the core protocol gives them, layout group included. One thread.
class HostWindow {
public:
    explicit HostWindow(const char* wmClass = nullptr) : connection_(connectToDisplay()) {
        xcb_connection_t* const c = connection_.get();
        xkb_x11_setup_xkb_extension(c, 1, 0, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr);
        context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        loadLayout();
        const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        window_ = xcb_generate_id(c);
        const std::uint32_t values[] = {screen->white_pixel, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE
                                                                 | XCB_EVENT_MASK_FOCUS_CHANGE};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window_, screen->root, 100, 100, 300, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK,
                          values);
        if (wmClass) {
            // Two strings, each ended by a zero.
            const std::string value = std::string(wmClass) + '\0' + wmClass + '\0';
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                                static_cast<std::uint32_t>(value.size()), value.data());
        }
        xcb_map_window(c, window_);
        xcb_flush(c);
    }
    ~HostWindow() {
        xkb_state_unref(state_);
        xkb_keymap_unref(keymap_);
        xkb_context_unref(context_);
    }
    HostWindow(const HostWindow&) = delete;
    HostWindow& operator=(const HostWindow&) = delete;

    void loadLayout() {
        xkb_state_unref(state_);
        xkb_keymap_unref(keymap_);
        keymap_ = xkb_x11_keymap_new_from_device(context_, connection_.get(),
                                                 xkb_x11_get_core_keyboard_device_id(connection_.get()),
                                                 XKB_KEYMAP_COMPILE_NO_FLAGS);
        state_ = xkb_state_new(keymap_);
    }
    /// Waits until the window manager has given it the focus, or takes it, and until nobody moves the focus any more.
    bool focus() {
        // Asked again and again: a window that the window manager has not shown yet cannot take the focus.
        for (int attempt = 0; attempt < 20; ++attempt) {
            if (pumpUntil([this] { return hasFocus_; }, std::chrono::milliseconds(1000))) return keepsFocus();
            xcb_map_window(connection_.get(), window_);
            xcb_set_input_focus(connection_.get(), XCB_INPUT_FOCUS_PARENT, window_, XCB_CURRENT_TIME);
            xcb_flush(connection_.get());
        }
        return false;
    }
    bool keepsFocus() {
        auto quietSince = std::chrono::steady_clock::now();
        int seen = focusChanges_;
        return pumpUntil(
            [&] {
                const auto now = std::chrono::steady_clock::now();
                if (seen != focusChanges_ || !hasFocus_) {
                    seen = focusChanges_;
                    quietSince = now;
                }
                return now - quietSince > std::chrono::milliseconds(150);
            },
            std::chrono::milliseconds(5000));
    }
    /// Handles events until the condition holds; false when the time is over first.
    bool pumpUntil(const std::function<bool()>& done,
                   std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) {
        const auto end = std::chrono::steady_clock::now() + limit;
        for (;;) {
            while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) handle(*event);
            if (done()) return true;
            if (std::chrono::steady_clock::now() > end) return false;
            pollfd wait{xcb_get_file_descriptor(connection_.get()), POLLIN, 0};
            poll(&wait, 1, 2);
        }
    }
    bool waitForText(const std::string& wanted, std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) {
        return pumpUntil([&] { return text_ == wanted; }, limit);
    }
    /// Whatever is under way arrives.
    void settle(std::chrono::milliseconds time = std::chrono::milliseconds(100)) {
        pumpUntil([] { return false; }, time);
    }
    const std::string& text() const { return text_; }
    void clear() {
        text_.clear();
        focusOuts_ = 0;
        deletions_ = 0;
        shortcuts_ = 0;
    }
    int focusOuts() const { return focusOuts_; }
    int deletions() const { return deletions_; }
    /// Presses with Control held.
    int shortcuts() const { return shortcuts_; }
    bool hasFocus() const { return hasFocus_; }
    xcb_window_t window() const { return window_; }
    xcb_connection_t* connection() { return connection_.get(); }

private:
    void handle(const xcb_generic_event_t& event) {
        switch (event.response_type & 0x7f) {
        case XCB_FOCUS_IN:
        case XCB_FOCUS_OUT: {
            const bool in = (event.response_type & 0x7f) == XCB_FOCUS_IN;
            const auto& focus = reinterpret_cast<const xcb_focus_in_event_t&>(event);
            if (focus.detail == XCB_NOTIFY_DETAIL_POINTER) break;
            hasFocus_ = in;
            ++focusChanges_;
            focusOuts_ += in ? 0 : 1;
            break;
        }
        case XCB_KEY_PRESS: typed(reinterpret_cast<const xcb_key_press_event_t&>(event)); break;
        default: break;
        }
    }
    void typed(const xcb_key_press_event_t& event) {
        shortcuts_ += (event.state & XCB_MOD_MASK_CONTROL) != 0 ? 1 : 0;
        xkb_state_update_mask(state_, event.state & 0xffU, 0, 0, 0, 0, (event.state >> 13) & 3U);
        if (xkb_state_key_get_one_sym(state_, event.detail) == XKB_KEY_BackSpace) {
            ++deletions_;
            text_.resize(lastCharacterStart(text_));
            return;
        }
        char buffer[16];
        const int length = xkb_state_key_get_utf8(state_, event.detail, buffer, sizeof buffer);
        if (length == 1 && buffer[0] == '\r') buffer[0] = '\n';
        if (length > 0 && (static_cast<unsigned char>(buffer[0]) >= ' ' || buffer[0] == '\n'))
            text_.append(buffer, static_cast<std::size_t>(length));
    }

    XcbConnection connection_;
    xkb_context* context_ = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state_ = nullptr;
    xcb_window_t window_ = 0;
    std::string text_;
    bool hasFocus_ = false;
    int focusOuts_ = 0;
    int focusChanges_ = 0;
    int deletions_ = 0;
    int shortcuts_ = 0;
};
} // namespace snipwren
