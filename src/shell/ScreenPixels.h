#pragma once

#include <QPoint>
#include <QScreen>

#include "platform/Geometry.h"

namespace snipwren {
/// The way between the display server's pixels, in which everything outside of shell/ counts, and the toolkit's scaled
/// units. The toolkit keeps each screen's corner where it is and scales from there.
class ScreenPixels {
public:
    ScreenPixels() = delete;
    /// All screens in pixels, the primary one first. Main thread.
    static std::vector<Screen> screens();
    /// The screen that the rectangle touches, else the primary one; null without any.
    static QScreen* screenAt(const Rect& pixels);
    static Rect toUnits(const Rect& pixels, const QScreen& screen);
    static Rect visibleUnits(const QScreen& screen);
};
} // namespace snipwren
