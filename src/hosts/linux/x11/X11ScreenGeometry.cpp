#include "hosts/linux/x11/X11ScreenGeometry.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include <xcb/randr.h>

namespace snipwren {
namespace {
XcbOwned<xcb_get_property_reply_t> rootProperty(xcb_connection_t* c, xcb_atom_t property, std::uint32_t words) {
    return XcbOwned<xcb_get_property_reply_t>(xcb_get_property_reply(
        c, xcb_get_property(c, 0, rootWindow(c), property, XCB_GET_PROPERTY_TYPE_ANY, 0, words), nullptr));
}

xcb_atom_t atomNamed(xcb_connection_t* c, std::string_view name) {
    const XcbOwned<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

Rect intersection(const Rect& a, const Rect& b) {
    const double left = std::max(a.x, b.x);
    const double top = std::max(a.y, b.y);
    const double right = std::min(a.x + a.width, b.x + b.width);
    const double bottom = std::min(a.y + a.height, b.y + b.height);
    if (right <= left || bottom <= top) return a; // Nonsense from the window manager.
    return {left, top, right - left, bottom - top};
}
} // namespace

xcb_connection_t* X11ScreenGeometry::connection() const {
    if (connection_ && xcb_connection_has_error(connection_.get())) connection_.reset();
    if (!connection_) connection_ = connectToDisplay(display_.empty() ? nullptr : display_.c_str());
    return connection_.get();
}

Rect X11ScreenGeometry::workArea(xcb_connection_t* c) const {
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const Rect whole{0, 0, double(screen->width_in_pixels), double(screen->height_in_pixels)};
    const xcb_atom_t property = atomNamed(c, "_NET_WORKAREA");
    if (property == XCB_ATOM_NONE) return whole;
    const auto reply = rootProperty(c, property, 4); // The first desktop's; they rarely differ.
    std::uint32_t values[4];
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < static_cast<int>(sizeof values))
        return whole;
    std::memcpy(values, xcb_get_property_value(reply.get()), sizeof values);
    return {double(values[0]), double(values[1]), double(values[2]), double(values[3])};
}

double X11ScreenGeometry::scale(xcb_connection_t* c) const {
    const auto reply = rootProperty(c, XCB_ATOM_RESOURCE_MANAGER, 16384);
    if (!reply || reply->format != 8) return 1;
    const std::string_view resources(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                     static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
    constexpr std::string_view key = "Xft.dpi:";
    std::size_t at = resources.find(key);
    if (at == std::string_view::npos) return 1;
    at = resources.find_first_not_of(" \t", at + key.size());
    double dpi = 0;
    if (at == std::string_view::npos
        || std::from_chars(resources.data() + at, resources.data() + resources.size(), dpi).ec != std::errc())
        return 1;
    // Steps of a quarter, as the desktops offer them.
    return dpi >= 48 && dpi <= 960 ? std::round(dpi / 96 * 4) / 4 : 1;
}

std::vector<Screen> X11ScreenGeometry::screens() const {
    const std::lock_guard lock(mutex_);
    xcb_connection_t* const c = connection();
    if (!c) return {};
    const Rect area = workArea(c);
    const double factor = scale(c);
    std::vector<Screen> screens;
    const auto* const randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr && randr->present) {
        const XcbOwned<xcb_randr_get_monitors_reply_t> reply(
            xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, rootWindow(c), 1), nullptr));
        auto it = xcb_randr_get_monitors_monitors_iterator(reply.get());
        for (; reply && it.rem; xcb_randr_monitor_info_next(&it)) {
            const Rect frame{double(it.data->x), double(it.data->y), double(it.data->width), double(it.data->height)};
            const Screen screen{frame, intersection(frame, area), factor};
            screens.insert(it.data->primary ? screens.begin() : screens.end(), screen);
        }
    }
    if (screens.empty()) {
        const xcb_screen_t* const root = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const Rect frame{0, 0, double(root->width_in_pixels), double(root->height_in_pixels)};
        screens.push_back({frame, intersection(frame, area), factor});
    }
    return screens;
}

Point X11ScreenGeometry::mouseLocation() const {
    const std::lock_guard lock(mutex_);
    xcb_connection_t* const c = connection();
    if (!c) return {};
    const XcbOwned<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply(c, xcb_query_pointer(c, rootWindow(c)), nullptr));
    return reply ? Point{double(reply->root_x), double(reply->root_y)} : Point{};
}
} // namespace snipwren
