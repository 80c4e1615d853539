#pragma once

#include <algorithm>
#include <optional>
#include <vector>

namespace snipwren {
struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

/// In screen points, origin at the top left of the main screen, y downwards.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    /// Edges count, so that a caret of no width on a screen is on it.
    bool intersects(const Rect& other) const {
        return x <= other.x + other.width && other.x <= x + width && y <= other.y + other.height
               && other.y <= y + height;
    }
    friend bool operator==(const Rect&, const Rect&) = default;
};

struct Screen {
    Rect frame;
    /// Without panels and docks.
    Rect visibleFrame;
    double scale = 1;
};

/// The screens and the pointer. Any thread.
class ScreenGeometry {
public:
    virtual ~ScreenGeometry() = default;
    /// The main screen first; empty when none is known.
    virtual std::vector<Screen> screens() const = 0;
    virtual Point mouseLocation() const = 0;
};
} // namespace snipwren
