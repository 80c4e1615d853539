#include "shell/ScreenPixels.h"

#include <QGuiApplication>

namespace snipwren {
namespace {
Rect inPixels(const QRect& units, const QScreen& screen) {
    const QRect all = screen.geometry();
    const double scale = screen.devicePixelRatio();
    return {all.x() + (units.x() - all.x()) * scale, all.y() + (units.y() - all.y()) * scale, units.width() * scale,
            units.height() * scale};
}
} // namespace

std::vector<Screen> ScreenPixels::screens() {
    std::vector<Screen> found;
    const QScreen* const primary = QGuiApplication::primaryScreen();
    for (const QScreen* screen : QGuiApplication::screens()) {
        const Screen one{inPixels(screen->geometry(), *screen), inPixels(screen->availableGeometry(), *screen),
                         screen->devicePixelRatio()};
        found.insert(screen == primary ? found.begin() : found.end(), one);
    }
    return found;
}

QScreen* ScreenPixels::screenAt(const Rect& pixels) {
    for (QScreen* screen : QGuiApplication::screens())
        if (inPixels(screen->geometry(), *screen).intersects(pixels)) return screen;
    return QGuiApplication::primaryScreen();
}

Rect ScreenPixels::toUnits(const Rect& pixels, const QScreen& screen) {
    const QRect all = screen.geometry();
    const double scale = screen.devicePixelRatio();
    return {all.x() + (pixels.x - all.x()) / scale, all.y() + (pixels.y - all.y()) / scale, pixels.width / scale,
            pixels.height / scale};
}

Rect ScreenPixels::visibleUnits(const QScreen& screen) {
    const QRect visible = screen.availableGeometry();
    return {double(visible.x()), double(visible.y()), double(visible.width()), double(visible.height())};
}
} // namespace snipwren
