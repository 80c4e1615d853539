#pragma once

#include <cstdlib>
#include <memory>
#include <mutex>

#include <xcb/xcb.h>

namespace snipwren {
struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
};
/// A reply, error or event of the X server, which its library allocates with malloc.
template <class T>
using XcbOwned = std::unique_ptr<T, FreeDeleter>;

struct XcbDisconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using XcbConnection = std::unique_ptr<xcb_connection_t, XcbDisconnect>;

inline xcb_window_t rootWindow(xcb_connection_t* connection) {
    return xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
}

/// None when there is no server to talk to. One at a time: the library that looks up the server's password keeps the
/// file's name in a static buffer.
inline XcbConnection connectToDisplay(const char* display = nullptr, int* screen = nullptr) {
    static std::mutex oneAtATime;
    const std::lock_guard lock(oneAtATime);
    XcbConnection connection(xcb_connect(display, screen));
    if (xcb_connection_has_error(connection.get())) return nullptr;
    return connection;
}

/// Returns when the server has handled every request sent so far.
inline void roundTrip(xcb_connection_t* connection) {
    XcbOwned<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}
} // namespace snipwren
