#pragma once

#include "hosts/linux/accessibility/AtSpiFocusTracker.h"

namespace snipwren {
/// Where text and fields stand on the screen, in pixels. Programs answer in different spaces: GTK 4 gives window
/// coordinates for everything, GTK in logical pixels, Qt and browsers nothing at the end of a text. An answer that cannot
/// be right is no answer. Worker thread, inside a job.
class AtSpiGeometry {
public:
    AtSpiGeometry(AtSpiBus& bus, const AtSpiField& field, const ActiveWindow& window);

    /// A caret of one pixel's width before the character at the offset (in the program's unit).
    /// `onFirstLine`: no line break stands before it.
    std::optional<Rect> caret(const AtSpiReference& object, int offset, bool onFirstLine) const;
    std::optional<Rect> range(int start, int end) const;
    std::optional<Rect> frame() const;

private:
    std::optional<Rect> onScreen(const std::optional<AtSpiRect>& rect, AtSpiCoordinates coordinates) const;

    AtSpiBus& bus_;
    const AtSpiField& field_;
    const Rect window_;
    double scale_ = 1;
    /// What the program counts as its window may be smaller than the X window: a shadow of its own around it.
    Point shadow_;
};
} // namespace snipwren
