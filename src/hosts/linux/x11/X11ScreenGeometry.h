#pragma once

#include <mutex>
#include <string>

#include "hosts/linux/x11/XcbTypes.h"
#include "platform/Geometry.h"

namespace snipwren {
/// The monitors as RandR knows them, less what panels reserve, in pixels of the X screen. Thread safe.
class X11ScreenGeometry final : public ScreenGeometry {
public:
    /// An empty display stands for DISPLAY. Connects on first use.
    explicit X11ScreenGeometry(std::string display = {}) : display_(std::move(display)) {}
    std::vector<Screen> screens() const override;
    Point mouseLocation() const override;

private:
    xcb_connection_t* connection() const;
    Rect workArea(xcb_connection_t* connection) const;
    double scale(xcb_connection_t* connection) const;

    const std::string display_;
    mutable std::mutex mutex_;
    mutable XcbConnection connection_;
};
} // namespace snipwren
