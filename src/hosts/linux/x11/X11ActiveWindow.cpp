#include "hosts/linux/x11/X11ActiveWindow.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <xcb/res.h>
#include <xcb/xcb.h>

#include "base/Text.h"
#include "hosts/linux/x11/XcbTypes.h"

namespace snipwren {
namespace {
constexpr std::uint32_t maxTitleWords = 256;

struct ReplyFree {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, ReplyFree>;
} // namespace

struct X11ActiveWindow::State {
    std::mutex mutex;
    xcb_connection_t* connection = nullptr;
    xcb_window_t root = 0;
    xcb_atom_t activeWindow = 0, processId = 0, netName = 0;
    bool hasResources = false;

    ~State() { close(); }

    void close() {
        if (connection) xcb_disconnect(connection);
        connection = nullptr;
    }

    xcb_atom_t atom(const char* name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    bool open() {
        if (connection && xcb_connection_has_error(connection) == 0) return true;
        close();
        int screen = 0;
        connection = connectToDisplay(nullptr, &screen).release();
        if (!connection) return false;
        auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
        for (; screen > 0 && screens.rem > 1; --screen) xcb_screen_next(&screens);
        root = screens.data->root;
        activeWindow = atom("_NET_ACTIVE_WINDOW");
        processId = atom("_NET_WM_PID");
        netName = atom("_NET_WM_NAME");
        const auto* extension = xcb_get_extension_data(connection, &xcb_res_id);
        if (extension && extension->present) {
            const Reply<xcb_res_query_version_reply_t> version(
                xcb_res_query_version_reply(connection, xcb_res_query_version(connection, 1, 2), nullptr));
            hasResources = version && (version->server_major > 1 || version->server_minor >= 2);
        }
        return true;
    }

    xcb_get_property_cookie_t ask(xcb_window_t window, xcb_atom_t property, std::uint32_t words) {
        return xcb_get_property(connection, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, words);
    }
    Reply<xcb_get_property_reply_t> answer(xcb_get_property_cookie_t cookie) {
        return Reply<xcb_get_property_reply_t>(xcb_get_property_reply(connection, cookie, nullptr));
    }
    static std::uint32_t number(const Reply<xcb_get_property_reply_t>& reply) {
        std::uint32_t value = 0;
        if (reply && reply->format == 32 && xcb_get_property_value_length(reply.get()) >= 4)
            std::memcpy(&value, xcb_get_property_value(reply.get()), sizeof value);
        return value;
    }
    static std::string text(const Reply<xcb_get_property_reply_t>& reply) {
        if (!reply || reply->format != 8) return {};
        return sanitizedUtf8({static_cast<const char*>(xcb_get_property_value(reply.get())),
                              static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))});
    }

    std::optional<ActiveWindow> read(xcb_window_t window) {
        // All questions first: one round trip instead of five.
        const auto pidCookie = ask(window, processId, 1);
        const auto nameCookie = ask(window, netName, maxTitleWords);
        const auto oldNameCookie = ask(window, XCB_ATOM_WM_NAME, maxTitleWords);
        const auto stateCookie = xcb_get_window_attributes(connection, window);
        const auto sizeCookie = xcb_get_geometry(connection, window);
        const auto placeCookie = xcb_translate_coordinates(connection, window, root, 0, 0);
        xcb_res_query_client_ids_cookie_t ownerCookie{};
        if (hasResources) {
            const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
            ownerCookie = xcb_res_query_client_ids(connection, 1, &spec);
        }

        ActiveWindow found;
        found.window = window;
        if (const std::uint32_t claimed = number(answer(pidCookie)))
            found.processIds.push_back(static_cast<int>(claimed));
        found.title = text(answer(nameCookie));
        const std::string oldName = text(answer(oldNameCookie));
        if (found.title.empty()) found.title = oldName;
        const Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(connection, sizeCookie, nullptr));
        const Reply<xcb_translate_coordinates_reply_t> place(
            xcb_translate_coordinates_reply(connection, placeCookie, nullptr));
        if (size && place)
            found.frame = {double(place->dst_x), double(place->dst_y), double(size->width), double(size->height)};
        if (hasResources) {
            const Reply<xcb_res_query_client_ids_reply_t> owners(
                xcb_res_query_client_ids_reply(connection, ownerCookie, nullptr));
            if (owners) {
                for (auto id = xcb_res_query_client_ids_ids_iterator(owners.get()); id.rem > 0;
                     xcb_res_client_id_value_next(&id)) {
                    if (xcb_res_client_id_value_value_length(id.data) < 1) continue;
                    const auto process = static_cast<int>(*xcb_res_client_id_value_value(id.data));
                    if (process > 0
                        && std::find(found.processIds.begin(), found.processIds.end(), process)
                               == found.processIds.end())
                        found.processIds.push_back(process);
                }
            }
        }
        // A window that has just died leaves its number behind, and the next program may use it for something hidden.
        const Reply<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(connection, stateCookie, nullptr));
        if (!state || state->map_state != XCB_MAP_STATE_VIEWABLE) return std::nullopt;
        return found;
    }
};

X11ActiveWindow::X11ActiveWindow() : state_(std::make_unique<State>()) {}

X11ActiveWindow::~X11ActiveWindow() = default;

std::optional<ActiveWindow> X11ActiveWindow::activeWindow() {
    const std::lock_guard lock(state_->mutex);
    if (!state_->open()) return std::nullopt;
    const std::uint32_t window = State::number(state_->answer(state_->ask(state_->root, state_->activeWindow, 1)));
    if (window == 0) return std::nullopt;
    return state_->read(window);
}
} // namespace snipwren
