#include "hosts/linux/x11/TapLink.h"

#include <cstring>

#include <xcb/xinput.h>

namespace snipwren {
namespace {
std::uint16_t findPostingDevice(xcb_connection_t* connection) {
    const XcbOwned<xcb_input_xi_query_device_reply_t> reply(xcb_input_xi_query_device_reply(
        connection, xcb_input_xi_query_device(connection, XCB_INPUT_DEVICE_ALL), nullptr));
    if (!reply) return 0;
    for (auto it = xcb_input_xi_query_device_infos_iterator(reply.get()); it.rem; xcb_input_xi_device_info_next(&it)) {
        const std::string_view name(xcb_input_xi_device_info_name(it.data), it.data->name_len);
        if (name.find("XTEST keyboard") != std::string_view::npos) return it.data->deviceid;
    }
    return 0;
}
} // namespace

Result<std::unique_ptr<TapLink>, TapError> TapLink::open(const std::string& display) {
    auto link = std::make_unique<TapLink>();
    link->connection = connectToDisplay(display.empty() ? nullptr : display.c_str());
    if (!link->connection) {
        return unexpected(
            TapError{"The X server cannot be reached. Check that DISPLAY names the one of your session."});
    }
    xcb_connection_t* const c = link->connection.get();
    const xcb_query_extension_reply_t* const input = xcb_get_extension_data(c, &xcb_input_id);
    const XcbOwned<xcb_input_xi_query_version_reply_t> version(
        input && input->present ? xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr)
                                : nullptr);
    if (!version || (version->major_version == 2 && version->minor_version < 2) || version->major_version < 2) {
        return unexpected(TapError{"The X server has no XInput 2.2, by which keys are seen. Use X.Org 1.12 or newer."});
    }
    link->inputOpcode = input->major_opcode;
    link->keyboard = XkbKeyboard::open(c);
    if (!link->keyboard) {
        return unexpected(TapError{"The X server has no XKB keyboard. Attach a keyboard and start Snipwren again."});
    }
    link->keyboard->selectEvents();
    link->postingDevice = findPostingDevice(c);
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } select{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
             XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE
                 | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
    xcb_input_xi_select_events(c, rootWindow(c), 1, &select.head);
    link->window = xcb_generate_id(c);
    xcb_create_window(c, 0, link->window, rootWindow(c), 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    link->grabs = std::make_unique<KeyGrabs>(c, link->keyboard->masterDevice());
    link->recomputeGrabs();
    roundTrip(c);
    if (xcb_connection_has_error(c)) return unexpected(TapError{"The X server closed the connection."});
    return link;
}

void TapLink::recomputeGrabs() {
    grabs->setModifierKeys(keyboard->modifierKeys());
    grabs->setCombinations(KeyGrabs::Set::slash, keyboard->slashCombinations());
    grabs->setCombinations(KeyGrabs::Set::terminators, keyboard->terminatorCombinations());
}
} // namespace snipwren
