#pragma once

#include <algorithm>

#include "platform/Geometry.h"

namespace snipwren {
/// Where our windows go: pure arithmetic in one space, which every rectangle is given in.
class WindowPlacement {
public:
    static constexpr double gap = 6;
    static constexpr double margin = 8;

    WindowPlacement() = delete;
    /// Under the anchor, left edges aligned; above it when there is no room below; always inside the visible frame, even
    /// when the anchor is not.
    static Point besideAnchor(const Rect& anchor, double width, double height, const Rect& visible) {
        const double left = visible.x + margin;
        const double top = visible.y + margin;
        const double right = std::max(left, visible.x + visible.width - margin - width);
        const double bottom = std::max(top, visible.y + visible.height - margin - height);
        const double below = anchor.y + anchor.height + gap;
        const double above = anchor.y - gap - height;
        const double y = below <= bottom || above < top ? below : above;
        return {std::clamp(anchor.x, left, right), std::clamp(y, top, bottom)};
    }
};
} // namespace snipwren
