#include "shell/OutsideWatcher.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include <QSocketNotifier>
#include <QTimer>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

namespace snipwren {
namespace {
struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;
} // namespace

struct OutsideWatcher::State {
    xcb_connection_t* connection = nullptr;
    xcb_screen_t* screen = nullptr;
    std::uint8_t inputExtension = 0;
    xcb_window_t overlay = 0;
    std::function<void()> happened;
    std::unique_ptr<QSocketNotifier> notifier;

    ~State() {
        notifier.reset();
        if (connection) xcb_disconnect(connection);
    }

    bool open() {
        connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection)) {
            xcb_disconnect(std::exchange(connection, nullptr));
            return false;
        }
        screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        const auto* extension = xcb_get_extension_data(connection, &xcb_input_id);
        if (extension && extension->present) {
            inputExtension = extension->major_opcode;
            const Owned<xcb_input_xi_query_version_reply_t> version(
                xcb_input_xi_query_version_reply(connection, xcb_input_xi_query_version(connection, 2, 2), nullptr));
            struct {
                xcb_input_event_mask_t head;
                std::uint32_t mask;
            } select{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
            xcb_input_xi_select_events(connection, screen->root, 1, &select.head);
        }
        const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection, screen->root, XCB_CW_EVENT_MASK, &events);
        // From here on nothing is missed.
        Owned<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        return true;
    }

    bool isPointerOutside() {
        const Owned<xcb_query_pointer_reply_t> pointer(
            xcb_query_pointer_reply(connection, xcb_query_pointer(connection, overlay), nullptr));
        const Owned<xcb_get_geometry_reply_t> size(
            xcb_get_geometry_reply(connection, xcb_get_geometry(connection, overlay), nullptr));
        if (!pointer || !size) return false;
        return pointer->win_x < 0 || pointer->win_y < 0 || pointer->win_x >= size->width
               || pointer->win_y >= size->height;
    }

    bool coversEverything(const xcb_map_notify_event_t& mapped) {
        if (!mapped.override_redirect || mapped.window == overlay) return false;
        const Owned<xcb_get_geometry_reply_t> size(
            xcb_get_geometry_reply(connection, xcb_get_geometry(connection, mapped.window), nullptr));
        return size && size->width >= screen->width_in_pixels && size->height >= screen->height_in_pixels;
    }

    void read() {
        if (!happened) return; // Stopped.
        bool told = false;
        while (const Owned<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
            if (told) continue;
            const int type = event->response_type & 0x7f;
            if (type == XCB_GE_GENERIC) {
                const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(*event);
                told = generic.extension == inputExtension && generic.event_type == XCB_INPUT_RAW_BUTTON_PRESS
                       && isPointerOutside();
            } else if (type == XCB_MAP_NOTIFY) {
                told = coversEverything(reinterpret_cast<const xcb_map_notify_event_t&>(*event));
            } else if (type == XCB_UNMAP_NOTIFY) {
                // Not by us: then nobody watches any more. The guard of the tap takes it away while we are stopped.
                told = reinterpret_cast<const xcb_unmap_notify_event_t&>(*event).window == overlay;
            }
        }
        if (xcb_connection_has_error(connection)) notifier->setEnabled(false);
        // Last, and a copy of it, because the answer may be stop().
        if (const auto tell = told ? happened : nullptr) tell();
    }
};

OutsideWatcher::OutsideWatcher() = default;

OutsideWatcher::~OutsideWatcher() = default;

void OutsideWatcher::start(unsigned window, std::function<void()> happened) {
    state_ = std::make_unique<State>();
    state_->overlay = window;
    state_->happened = std::move(happened);
    if (!state_->open()) {
        state_.reset();
        return;
    }
    state_->notifier =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(state_->connection), QSocketNotifier::Read);
    QObject::connect(state_->notifier.get(), &QSocketNotifier::activated, state_->notifier.get(),
                     [state = state_.get()] { state->read(); });
    // Of what came with the round trip the descriptor tells nothing any more.
    QTimer::singleShot(0, state_->notifier.get(), [state = state_.get()] { state->read(); });
}

void OutsideWatcher::stop() {
    if (!state_) return;
    // It may be one of its own calls that ends it.
    state_->notifier->setEnabled(false);
    state_->happened = nullptr;
    QTimer::singleShot(0, [old = std::shared_ptr<State>(std::move(state_))] {});
}
} // namespace snipwren
