#pragma once

#include <memory>
#include <string>

#include "base/Result.h"
#include "hosts/linux/x11/KeyGrabs.h"
#include "platform/KeyboardTap.h"

namespace snipwren {
/// One connection of the key tap to the X server, with everything on it asked for: the raw key events of the session, the
/// keyboard's layout and state, and the grabs. Only members; the tap's thread uses them.
struct TapLink {
    XcbConnection connection;
    std::unique_ptr<XkbKeyboard> keyboard;
    std::unique_ptr<KeyGrabs> grabs;
    std::uint8_t inputOpcode = 0;
    /// The device through which programs post keys; events of our own presses come from it.
    std::uint16_t postingDevice = 0;
    /// A window of this connection, by which the guard names it.
    xcb_window_t window = 0;

    static Result<std::unique_ptr<TapLink>, TapError> open(const std::string& display);
    /// After a change of the layout.
    void recomputeGrabs();
};
} // namespace snipwren
