#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include "hosts/linux/x11/XcbTypes.h"

namespace snipwren {
/// Types like a person, or much faster, through the server's test extension. Text goes by the keys of a US layout.
class Typist {
public:
    /// Presses by the server's keyboard are those of a person; by the test extension's own device also we post keys.
    enum class Device { extension, keyboard };
    explicit Typist(Device device = Device::extension) : connection_(connectToDisplay()) {
        if (device == Device::keyboard) useKeyboard();
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
    /// A button of the pointer, where it stands.
    void click(std::uint8_t button = 1) {
        for (const int type : {XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE})
            xcb_test_fake_input(connection_.get(), static_cast<std::uint8_t>(type), button, XCB_CURRENT_TIME, XCB_NONE,
                                0, 0, 0);
        sync();
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
        xcb_test_fake_input(connection_.get(), static_cast<std::uint8_t>(firstEvent_ + type - XCB_KEY_PRESS), keycode,
                            XCB_CURRENT_TIME, XCB_NONE, 0, 0, device_);
    }
    void useKeyboard() {
        const auto* const input = xcb_get_extension_data(connection_.get(), &xcb_input_id);
        const XcbOwned<xcb_input_xi_query_device_reply_t> devices(xcb_input_xi_query_device_reply(
            connection_.get(), xcb_input_xi_query_device(connection_.get(), XCB_INPUT_DEVICE_ALL), nullptr));
        if (!input || !devices) return;
        for (auto i = xcb_input_xi_query_device_infos_iterator(devices.get()); i.rem > 0;
             xcb_input_xi_device_info_next(&i)) {
            const std::string_view name(xcb_input_xi_device_info_name(i.data),
                                        static_cast<std::size_t>(xcb_input_xi_device_info_name_length(i.data)));
            if (name != "Xvfb keyboard") continue;
            device_ = static_cast<std::uint8_t>(i.data->deviceid);
            firstEvent_ = static_cast<std::uint8_t>(input->first_event + XCB_INPUT_DEVICE_KEY_PRESS);
        }
    }

    XcbConnection connection_;
    std::uint8_t device_ = 0;
    std::uint8_t firstEvent_ = XCB_KEY_PRESS;
    std::map<char, std::pair<std::uint8_t, bool>> keys_;
};
} // namespace snipwren
