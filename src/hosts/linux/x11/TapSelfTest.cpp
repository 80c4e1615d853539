#include "hosts/linux/x11/TapSelfTest.h"

#include <algorithm>
#include <functional>
#include <thread>

#include <poll.h>
#include <xcb/xtest.h>

namespace snipwren {
namespace {
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr std::string_view sample = "//note ";

/// Swallows the Space that ends the sample, as the program would.
class SampleListener final : public KeyboardTapListener {
public:
    bool handleKeyEvent(const KeyEvent& event) override {
        typed += event.characters;
        if (typed != sample || event.keyCode != keycode::space || event.reachedHost) return false;
        swallowed = true;
        return true;
    }
    void handleTimeout() override {}
    void handleUserInputDisable() override {}
    KeyInterest keyInterest() const override {
        if (typed.empty()) return KeyInterest::nothing;
        return typed == "/" ? KeyInterest::nextSlash : KeyInterest::terminators;
    }

    std::string typed;
    std::atomic<bool> swallowed = false;
};

/// A window that counts the keys it gets. Without a frame, so that no window manager decides whether it may have the focus.
class SampleField {
public:
    explicit SampleField(xcb_connection_t* connection) : connection_(connection), window_(xcb_generate_id(connection)) {
        const std::uint32_t values[] = {1, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_FOCUS_CHANGE};
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window_, rootWindow(connection), 0, 0, 160, 24, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(connection, window_);
        const XcbOwned<xcb_get_input_focus_reply_t> focus(
            xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        before_ = focus ? focus->focus : xcb_window_t{XCB_INPUT_FOCUS_POINTER_ROOT};
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, window_, XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
    ~SampleField() {
        xcb_set_input_focus(connection_, XCB_INPUT_FOCUS_POINTER_ROOT, before_, XCB_CURRENT_TIME);
        xcb_destroy_window(connection_, window_);
        roundTrip(connection_);
    }
    bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
        const auto end = SteadyClock::now() + limit;
        for (;;) {
            while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection_)}) {
                const int type = event->response_type & 0x7f;
                if (type == XCB_KEY_PRESS) ++keys;
                if (type == XCB_FOCUS_IN) hasFocus = true;
            }
            if (done()) return true;
            if (SteadyClock::now() > end || xcb_connection_has_error(connection_)) return false;
            pollfd wait{xcb_get_file_descriptor(connection_), POLLIN, 0};
            poll(&wait, 1, 2);
        }
    }

    int keys = 0;
    bool hasFocus = false;

private:
    xcb_connection_t* connection_;
    xcb_window_t window_;
    xcb_window_t before_ = XCB_INPUT_FOCUS_POINTER_ROOT;
};

void press(xcb_connection_t* connection, const XkbKeyboard::Typing& key) {
    const auto fake = [connection](std::uint8_t type, std::uint8_t keycode) {
        xcb_test_fake_input(connection, type, keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    };
    for (const std::uint8_t modifier : key.modifierKeys) fake(XCB_KEY_PRESS, modifier);
    fake(XCB_KEY_PRESS, key.keycode);
    fake(XCB_KEY_RELEASE, key.keycode);
    for (const std::uint8_t modifier : key.modifierKeys) fake(XCB_KEY_RELEASE, modifier);
    xcb_flush(connection);
}
} // namespace

TapSelfTest::Report TapSelfTest::run(X11KeyboardTap::Options options) {
    const XcbConnection connection = connectToDisplay(options.display.empty() ? nullptr : options.display.c_str());
    const auto keyboard = connection ? XkbKeyboard::open(connection.get()) : nullptr;
    const auto* const posting = connection ? xcb_get_extension_data(connection.get(), &xcb_test_id) : nullptr;
    if (!keyboard || !posting || !posting->present)
        return {false, "The X server has no XTEST extension, by which a trigger is removed again where accessibility "
                       "does not reach."};
    SampleListener listener;
    OwnKeys ownKeys;
    X11KeyboardTapProvider provider(ownKeys, std::move(options));
    auto tap = provider.createTap(listener);
    if (!tap) return {false, tap.error().description};
    (*tap)->setEnabled(true);
    std::thread thread([&tap] { (*tap)->run(); });

    Report report;
    {
        SampleField field(connection.get());
        bool typable = true;
        if (!field.waitUntil([&] { return field.hasFocus; }, 1000ms)) {
            report.sentence = "The test window did not get the keyboard. Close menus and lockers and try again.";
        } else {
            field.waitUntil([] { return false; }, 50ms);
            for (const char c : sample) {
                const auto key = keyboard->typingOf(static_cast<unsigned char>(c));
                typable = typable && key;
                if (!key) continue;
                press(connection.get(), *key);
                field.waitUntil([] { return false; }, 5ms);
            }
            const int wanted = static_cast<int>(sample.size()) - 1;
            field.waitUntil([&] { return listener.swallowed && field.keys >= wanted; }, 500ms);
            field.waitUntil([] { return false; }, 20ms);
            report.passed = listener.swallowed && typable && field.keys >= wanted;
            if (report.passed) {
                report.sentence = "A trigger typed into a window of our own was recognised and its last key held back.";
            } else if (!typable) {
                report.sentence =
                    "The current layout cannot type //note. Switch to one with Latin letters and try again.";
            } else {
                report.sentence =
                    "A trigger typed into a window of our own was not recognised: another program may hold "
                    "Space or the slash. Close other text expanders and try again.";
            }
        }
    }
    (*tap)->invalidate();
    thread.join();
    return report;
}
} // namespace snipwren
