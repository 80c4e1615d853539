#pragma once

#include <array>
#include <chrono>
#include <optional>

#include "hosts/linux/desktop/ApplicationIdentity.h"
#include "hosts/linux/x11/XcbTypes.h"

namespace snipwren {
/// One connection that follows which window has the keyboard, and whether a program has grabbed it. One thread.
class FocusWatch {
public:
    /// A grab that lasts no longer than this is a shortcut of the window manager or a key that our tap answers: at once,
    /// but a server that another program floods with requests hears of it late.
    static constexpr std::chrono::milliseconds passingGrab{150};

    static std::unique_ptr<FocusWatch> open(const std::string& display);
    int descriptor() const { return xcb_get_file_descriptor(connection_.get()); }
    bool isBroken() const { return xcb_connection_has_error(connection_.get()) != 0; }

    /// Takes in what has happened; true when another window may be in front.
    bool handleEvents();
    /// The window in front; 0 for none.
    xcb_window_t frontmostWindow() const { return frontmost_; }
    WindowOwner ownerOf(xcb_window_t window) const;
    bool isGrabbed(std::chrono::steady_clock::time_point now) const {
        return grabbedSince_ && now - *grabbedSince_ >= passingGrab;
    }
    /// When isGrabbed may change without an event.
    std::optional<std::chrono::steady_clock::time_point> nextLook() const {
        return grabbedSince_ ? std::optional(*grabbedSince_ + passingGrab) : std::nullopt;
    }

private:
    enum Atom { activeWindow, netName, processId, gtkApplicationId, kdeDesktopFile, gtkDesktopFile, atomCount };
    explicit FocusWatch(XcbConnection connection) : connection_(std::move(connection)) {}
    /// True when what is known of the focus may be stale.
    bool takeEvents();
    void refreshFocus();
    void refreshFrontmost();
    std::string text(xcb_window_t window, xcb_atom_t property) const;
    std::uint32_t number(xcb_window_t window, xcb_atom_t property) const;
    /// The window itself or the nearest one above it that names its class.
    xcb_window_t namedWindow(xcb_window_t window) const;

    XcbConnection connection_;
    std::array<xcb_atom_t, atomCount> atoms_{};
    bool hasResources_ = false;
    bool activeWindowSet_ = false;
    xcb_window_t focus_ = 0;
    xcb_window_t frontmost_ = 0;
    std::optional<std::chrono::steady_clock::time_point> grabbedSince_;
};
} // namespace snipwren
