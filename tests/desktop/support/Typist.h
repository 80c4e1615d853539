#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <xcb/xtest.h>

#include "platform/linux/XcbTypes.h"

namespace snipwren {
/// Types like a person, or much faster, through the server's test extension. Text goes by the keys of a US layout.
class Typist {
public:
    Typist() : connection_(connectToDisplay()) {
        row("1234567890-=", "!@#$%^&*()_+", 10);
        row("qwertyuiop[]", "QWERTYUIOP{}", 24);
        row("asdfghjkl;'`", "ASDFGHJKL:\"~", 38);
        row("\\zxcvbnm,./", "|ZXCVBNM<>?", 51);
        keys_[' '] = {65, false};
        keys_['\n'] = {36, false};
        keys_['\b'] = {22, false};
        keys_['\t'] = {23, false};
        keys_['\x1b'] = {9, false};
    }

    void type(std::string_view text, std::chrono::microseconds gap = {}) {
        for (const char c : text) {
            const auto [keycode, shifted] = keys_.at(c);
            if (shifted) down(50);
            tap(keycode);
            if (shifted) up(50);
            if (gap.count() == 0) continue;
            flush();
            std::this_thread::sleep_for(gap);
        }
        sync();
    }
    void down(std::uint8_t keycode) { fake(XCB_KEY_PRESS, keycode); }
    void up(std::uint8_t keycode) { fake(XCB_KEY_RELEASE, keycode); }
    void tap(std::uint8_t keycode) {
        down(keycode);
        up(keycode);
    }
    /// With the modifier's key held.
    void chord(std::uint8_t modifier, std::uint8_t keycode) {
        down(modifier);
        tap(keycode);
        up(modifier);
        sync();
    }
    void flush() { xcb_flush(connection_.get()); }
    void sync() { roundTrip(connection_.get()); }
    xcb_connection_t* connection() { return connection_.get(); }

private:
    void row(const char* plain, const char* shifted, std::uint8_t first) {
        for (int i = 0; plain[i]; ++i) {
            const auto keycode = static_cast<std::uint8_t>(first + i);
            keys_[plain[i]] = {keycode, false};
            keys_[shifted[i]] = {keycode, true};
        }
    }
    void fake(std::uint8_t type, std::uint8_t keycode) {
        xcb_test_fake_input(connection_.get(), type, keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    }
    XcbConnection connection_;
    std::map<char, std::pair<std::uint8_t, bool>> keys_;
};
} // namespace snipwren
