#include "hosts/linux/accessibility/AtSpiGeometry.h"

#include <algorithm>
#include <cmath>

namespace snipwren {
namespace {
constexpr AtSpiCoordinates spaces[] = {AtSpiCoordinates::screen, AtSpiCoordinates::window};
constexpr double tolerance = 2;
} // namespace

AtSpiGeometry::AtSpiGeometry(AtSpiBus& bus, const AtSpiField& field, const ActiveWindow& window)
    : bus_(bus),
      field_(field),
      window_(window.frame) {
    if (!field.window.isValid()) return;
    const auto top = bus.extents(field.window, AtSpiCoordinates::window);
    if (!top || top->width <= 0 || top->height <= 0) return;
    scale_ = std::max(1.0, std::round(window_.width / top->width));
    shadow_ = {std::max(0.0, std::floor((window_.width - scale_ * top->width) / 2)),
               std::max(0.0, std::floor((window_.height - scale_ * top->height) / 2))};
}

std::optional<Rect> AtSpiGeometry::onScreen(const std::optional<AtSpiRect>& rect, AtSpiCoordinates coordinates) const {
    if (!rect || rect->height <= 0 || rect->width < 0) return std::nullopt;
    // The shape of "not known" in most programs.
    if (coordinates == AtSpiCoordinates::screen && rect->x == 0 && rect->y == 0) return std::nullopt;
    Rect found{rect->x * scale_, rect->y * scale_, rect->width * scale_, rect->height * scale_};
    if (coordinates == AtSpiCoordinates::window) {
        found.x += window_.x + shadow_.x;
        found.y += window_.y + shadow_.y;
    }
    const bool inside = found.x >= window_.x - tolerance && found.y >= window_.y - tolerance
                        && found.x <= window_.x + window_.width + tolerance
                        && found.y <= window_.y + window_.height + tolerance;
    if (!inside) return std::nullopt;
    return found;
}

std::optional<Rect> AtSpiGeometry::caret(const AtSpiReference& object, int offset, bool onFirstLine) const {
    const bool atEnd = bus_.characterCount(object).value_or(0) <= offset;
    const auto before = offset > 0 ? bus_.text(object, offset - 1, offset) : std::nullopt;
    const bool lineGoesOn = before && !before->empty() && *before != "\n";
    for (const AtSpiCoordinates space : spaces) {
        const auto of = [&](int character) -> std::optional<Rect> {
            if (bus_.timedOut()) return std::nullopt;
            auto rect = onScreen(bus_.characterExtents(object, character, space), space);
            if (rect && rect->height >= window_.height) rect.reset();
            return rect;
        };
        std::optional<Rect> found;
        // Behind the last character some programs answer nothing, and Qt the place of another one.
        if (!(atEnd && lineGoesOn)) found = of(offset);
        if (!found && lineGoesOn) {
            found = of(offset - 1);
            if (found) found->x += found->width;
        }
        if (!found) continue;
        // Qt's plain text editor places every line on the first one, and so does an end that is not known.
        const auto first = onFirstLine ? std::nullopt : of(0);
        if (first && found->y <= first->y) continue;
        return Rect{found->x, found->y, 1, found->height};
    }
    return std::nullopt;
}

std::optional<Rect> AtSpiGeometry::range(int start, int end) const {
    for (const AtSpiCoordinates space : spaces) {
        const auto found = onScreen(bus_.rangeExtents(field_.object, start, end, space), space);
        if (found || bus_.timedOut()) return found;
    }
    return std::nullopt;
}

std::optional<Rect> AtSpiGeometry::frame() const {
    for (const AtSpiCoordinates space : spaces) {
        const auto found = onScreen(bus_.extents(field_.object, space), space);
        if (found || bus_.timedOut()) return found;
    }
    return std::nullopt;
}
} // namespace snipwren
