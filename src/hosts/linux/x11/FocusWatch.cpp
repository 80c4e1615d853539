#include "hosts/linux/x11/FocusWatch.h"

#include <cstring>
#include <utility>

#include <xcb/res.h>

#include "base/Text.h"

namespace snipwren {
namespace {
constexpr std::uint32_t maxTextWords = 256;
}

std::unique_ptr<FocusWatch> FocusWatch::open(const std::string& display) {
    XcbConnection connection = connectToDisplay(display.empty() ? nullptr : display.c_str());
    if (!connection) return nullptr;
    std::unique_ptr<FocusWatch> watch(new FocusWatch(std::move(connection)));
    xcb_connection_t* const c = watch->connection_.get();
    constexpr std::array<std::string_view, atomCount> names{
        "_NET_ACTIVE_WINDOW",       "_NET_WM_NAME",      "_NET_WM_PID", "_GTK_APPLICATION_ID",
        "_KDE_NET_WM_DESKTOP_FILE", "_BAMF_DESKTOP_FILE"};
    std::array<xcb_intern_atom_cookie_t, atomCount> cookies{};
    for (std::size_t i = 0; i < names.size(); ++i)
        cookies[i] = xcb_intern_atom(c, 0, static_cast<std::uint16_t>(names[i].size()), names[i].data());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const XcbOwned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookies[i], nullptr));
        if (reply) watch->atoms_[i] = reply->atom;
    }
    const auto* const resources = xcb_get_extension_data(c, &xcb_res_id);
    if (resources && resources->present) {
        const XcbOwned<xcb_res_query_version_reply_t> version(
            xcb_res_query_version_reply(c, xcb_res_query_version(c, 1, 2), nullptr));
        watch->hasResources_ = version && (version->server_major > 1 || version->server_minor >= 2);
    }
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_FOCUS_CHANGE;
    xcb_change_window_attributes(c, rootWindow(c), XCB_CW_EVENT_MASK, &mask);
    watch->refreshFocus();
    watch->refreshFrontmost();
    return watch;
}

bool FocusWatch::handleEvents() {
    const xcb_window_t before = frontmost_;
    // Asking for the focus reads further events in, of which the descriptor tells nothing any more: look again.
    while (takeEvents()) {
        refreshFocus();
        refreshFrontmost();
    }
    // The number of a window that was closed is soon another program's.
    return std::exchange(activeWindowSet_, false) || frontmost_ != before;
}

bool FocusWatch::takeEvents() {
    bool stale = false;
    while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
        const int type = event->response_type & 0x7f;
        if (type == XCB_PROPERTY_NOTIFY) {
            if (reinterpret_cast<const xcb_property_notify_event_t&>(*event).atom != atoms_[activeWindow]) continue;
            stale = activeWindowSet_ = true;
        } else if (type == XCB_FOCUS_IN || type == XCB_FOCUS_OUT) {
            const auto& change = reinterpret_cast<const xcb_focus_in_event_t&>(*event);
            switch (change.mode) {
            case XCB_NOTIFY_MODE_GRAB:
                if (!grabbedSince_) grabbedSince_ = std::chrono::steady_clock::now();
                break;
            case XCB_NOTIFY_MODE_UNGRAB: grabbedSince_.reset(); break;
            case XCB_NOTIFY_MODE_NORMAL:
                // The end of a grab is told to whichever window has the focus then.
                grabbedSince_.reset();
                stale = true;
                break;
            default: stale = true;
            }
        }
        // Anything else are errors about windows that are gone.
    }
    return stale;
}

void FocusWatch::refreshFocus() {
    xcb_connection_t* const c = connection_.get();
    const XcbOwned<xcb_get_input_focus_reply_t> reply(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    // 0 is no focus at all, 1 the root of wherever the pointer is.
    const xcb_window_t now = !reply || reply->focus <= 1 ? xcb_window_t{0} : reply->focus;
    if (now == focus_) return;
    const std::uint32_t none = XCB_EVENT_MASK_NO_EVENT;
    const std::uint32_t changes = XCB_EVENT_MASK_FOCUS_CHANGE;
    const xcb_window_t root = rootWindow(c); // Is watched anyway.
    if (focus_ != 0 && focus_ != root) xcb_change_window_attributes(c, focus_, XCB_CW_EVENT_MASK, &none);
    if (now != 0 && now != root) xcb_change_window_attributes(c, now, XCB_CW_EVENT_MASK, &changes);
    focus_ = now;
    xcb_flush(c);
}

void FocusWatch::refreshFrontmost() {
    const xcb_window_t active = number(rootWindow(connection_.get()), atoms_[activeWindow]);
    // Without a window manager the focus has to do.
    frontmost_ = active != 0 ? active : namedWindow(focus_);
}

xcb_window_t FocusWatch::namedWindow(xcb_window_t window) const {
    xcb_connection_t* const c = connection_.get();
    for (int depth = 0; window != 0 && window != rootWindow(c) && depth < 16; ++depth) {
        if (!text(window, XCB_ATOM_WM_CLASS).empty()) return window;
        const XcbOwned<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr));
        window = tree ? tree->parent : 0;
    }
    return 0;
}

std::string FocusWatch::text(xcb_window_t window, xcb_atom_t property) const {
    if (property == XCB_ATOM_NONE) return {};
    const XcbOwned<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_.get(),
        xcb_get_property(connection_.get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, maxTextWords), nullptr));
    if (!reply || reply->format != 8) return {};
    return sanitizedUtf8({static_cast<const char*>(xcb_get_property_value(reply.get())),
                          static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))});
}

std::uint32_t FocusWatch::number(xcb_window_t window, xcb_atom_t property) const {
    if (property == XCB_ATOM_NONE) return 0;
    const XcbOwned<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_.get(), xcb_get_property(connection_.get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1),
        nullptr));
    std::uint32_t value = 0;
    if (reply && reply->format == 32 && xcb_get_property_value_length(reply.get()) >= 4)
        std::memcpy(&value, xcb_get_property_value(reply.get()), sizeof value);
    return value;
}

WindowOwner FocusWatch::ownerOf(xcb_window_t window) const {
    WindowOwner owner;
    const std::string classes = text(window, XCB_ATOM_WM_CLASS);
    const std::vector<std::string_view> parts = split(classes, '\0');
    if (!parts.empty()) owner.instanceName = parts[0];
    if (parts.size() > 1) owner.className = parts[1];
    owner.title = text(window, atoms_[netName]);
    if (owner.title.empty()) owner.title = text(window, XCB_ATOM_WM_NAME);
    for (const Atom atom : {gtkApplicationId, kdeDesktopFile, gtkDesktopFile}) {
        if (!owner.applicationId.empty()) break;
        owner.applicationId = text(window, atoms_[atom]);
        const std::size_t slash = owner.applicationId.rfind('/');
        if (slash != std::string::npos) owner.applicationId.erase(0, slash + 1);
        if (owner.applicationId.ends_with(".desktop")) owner.applicationId.resize(owner.applicationId.size() - 8);
    }
    owner.processId = static_cast<int>(number(window, atoms_[processId]));
    if (hasResources_) {
        // What the server knows cannot be made up, and in a sandbox the window's own number means another process.
        const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        const XcbOwned<xcb_res_query_client_ids_reply_t> reply(xcb_res_query_client_ids_reply(
            connection_.get(), xcb_res_query_client_ids(connection_.get(), 1, &spec), nullptr));
        auto ids = xcb_res_query_client_ids_ids_iterator(reply.get());
        for (; reply && ids.rem > 0; xcb_res_client_id_value_next(&ids)) {
            if (xcb_res_client_id_value_value_length(ids.data) < 1) continue;
            const auto process = static_cast<int>(*xcb_res_client_id_value_value(ids.data));
            if (process > 0) owner.processId = process;
        }
    }
    if (owner.processId > 0) {
        owner.executable = ApplicationIdentity::executableOf(owner.processId);
        owner.flatpakId = ApplicationIdentity::flatpakIdOf(owner.processId);
    }
    return owner;
}
} // namespace snipwren
