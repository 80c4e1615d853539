#include "shell/KeyboardGrab.h"

#include <cstdlib>
#include <memory>

#include <QGuiApplication>
#include <xcb/xcb.h>

namespace snipwren {
namespace {
/// The lowest keycode there is, which no key of a keyboard has.
constexpr std::uint8_t lastKeyCode = 8;

struct ReplyFree {
    void operator()(void* reply) const { std::free(reply); }
};

xcb_connection_t* toolkitConnection() {
    auto* const x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}
} // namespace

KeyboardGrab::KeyboardGrab(QWidget& window) : window_(window) {
    retry_.setTimerType(Qt::PreciseTimer);
    retry_.setInterval(retryInterval);
    QObject::connect(&retry_, &QTimer::timeout, [this] { attempt(); });
}

KeyboardGrab::~KeyboardGrab() { letGo(); }

void KeyboardGrab::take(std::function<void(bool)> finished) {
    finished_ = std::move(finished);
    retries_ = 0;
    attempt();
}

void KeyboardGrab::attempt() {
    xcb_connection_t* const connection = toolkitConnection();
    bool over = connection == nullptr;
    if (connection) {
        // A grab on a window that is not yet mapped fails, so asking for it again is the test.
        const std::unique_ptr<xcb_grab_keyboard_reply_t, ReplyFree> reply(
            xcb_grab_keyboard_reply(connection,
                                    xcb_grab_keyboard(connection, 0, static_cast<xcb_window_t>(window_.winId()),
                                                      XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                    nullptr));
        held_ = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
        over = held_ || ++retries_ > maxRetries;
    }
    if (!over) {
        retry_.start();
        return;
    }
    retry_.stop();
    if (const auto finished = std::exchange(finished_, nullptr)) finished(held_);
}

void KeyboardGrab::letGo() {
    retry_.stop();
    finished_ = nullptr;
    if (!std::exchange(held_, false)) return;
    if (xcb_connection_t* const connection = toolkitConnection()) {
        xcb_ungrab_keyboard(connection, XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
}

void KeyboardGrab::release(std::function<void()> returned) {
    letGo();
    returned_ = std::move(returned);
    xcb_connection_t* const connection = toolkitConnection();
    if (!connection) {
        QTimer::singleShot(0, &window_, [this] {
            if (const auto tell = std::exchange(returned_, nullptr)) tell();
        });
        return;
    }
    // The server sends this back behind every key that it gave us, and the toolkit takes it the same way.
    xcb_key_press_event_t press{};
    press.response_type = XCB_KEY_PRESS;
    press.detail = lastKeyCode;
    press.event = static_cast<xcb_window_t>(window_.winId());
    press.root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    press.same_screen = 1;
    xcb_send_event(connection, 0, press.event, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&press));
    xcb_flush(connection);
}

bool KeyboardGrab::takesLastKey(const QKeyEvent& press) {
    if (press.nativeScanCode() != lastKeyCode) return false;
    if (const auto returned = std::exchange(returned_, nullptr)) returned();
    return true;
}
} // namespace snipwren
