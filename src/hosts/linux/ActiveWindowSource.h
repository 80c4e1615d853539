#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace snipwren {
struct ActiveWindow {
    std::uint64_t window = 0;
    /// Every process that the window may belong to: what the window says and what the server knows differ in sandboxes.
    std::vector<int> processIds;
    std::string title;
    /// The window's contents in screen pixels, without the window manager's frame.
    Rect frame;
};

/// The window that has the keyboard, asked of the display server. Any thread; takes a round trip.
class ActiveWindowSource {
public:
    virtual ~ActiveWindowSource() = default;
    virtual std::optional<ActiveWindow> activeWindow() = 0;
};
} // namespace snipwren
