#include "capture/CaretLocator.h"

#include <algorithm>

#include <fmt/format.h>

namespace snipwren {
namespace {
constexpr double unknownScreenHeight = 1080.0;

/// The shape that editors built on a browser return for a caret they do not report.
bool isElectronFailureShape(const Rect& rect, const std::vector<Screen>& screens) {
    const double mainHeight = screens.empty() ? unknownScreenHeight : screens.front().frame.height;
    return rect.height == mainHeight || (rect.x == 0 && rect.y == 0);
}

bool isOnScreen(const Rect& rect, const std::vector<Screen>& screens) {
    return std::any_of(screens.begin(), screens.end(),
                       [&](const Screen& screen) { return rect.intersects(screen.frame); });
}

std::string coordinates(const Rect& rect) {
    return fmt::format("x={:.1f}, y={:.1f}, w={:.1f}, h={:.1f}", rect.x, rect.y, rect.width, rect.height);
}

double milliseconds(SteadyPoint from, SteadyPoint to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}
} // namespace

Rect CaretLocator::locate(FieldElement* element) const {
    const std::vector<Screen> screens = screens_.screens();
    if (element) {
        if (const auto rect = caretBounds(*element, screens)) return *rect;
        const SteadyPoint start = clock_.steadyNow();
        if (const auto frame = element->frame(); frame && isOnScreen(*frame, screens)) {
            log_.line(fmt::format("🏢 CaptureRouter: Resolved bounds via element position fallback in {:.2f} ms: {}",
                                  milliseconds(start, clock_.steadyNow()), coordinates(*frame)));
            return *frame;
        }
    }
    const SteadyPoint start = clock_.steadyNow();
    const Point mouse = screens_.mouseLocation();
    const Rect rect{mouse.x, mouse.y, 0, 0};
    log_.line(fmt::format(
        "CaptureRouter: AX caret failed or Electron matched. Falling back to mouse position in {:.2f} ms: {}",
        milliseconds(start, clock_.steadyNow()), coordinates(rect)));
    return rect;
}

std::optional<Rect> CaretLocator::caretBounds(FieldElement& element, const std::vector<Screen>& screens) const {
    const SteadyPoint start = clock_.steadyNow();
    const auto selection = element.selectedRange();
    const auto rect = selection ? element.boundsOf(*selection) : std::nullopt;
    if (!rect) return std::nullopt;
    const bool suspected = isElectronFailureShape(*rect, screens);
    log_.line(fmt::format("🎯 CaptureRouter: Resolved caret bounds via AXUIElement in {:.2f} ms{}: {}",
                          milliseconds(start, clock_.steadyNow()),
                          suspected ? " [Electron-Failure-Pattern-Suspected]" : "", coordinates(*rect)));
    if (suspected || !isOnScreen(*rect, screens)) return std::nullopt;
    return rect;
}
} // namespace snipwren
