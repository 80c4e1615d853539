// snipwren-tapguard: frees the keyboard when the program with the key tap is stopped (a debugger, Ctrl+Z, SIGSTOP) while it
// may be holding a key back. Started by the tap, which sends its connection over standard input; ends with it.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <xcb/res.h>
#include <xcb/xinput.h>

#include "hosts/linux/FileDescriptor.h"
#include "hosts/linux/x11/TapGuard.h"
#include "hosts/linux/x11/XcbTypes.h"

namespace {
using snipwren::FileDescriptor;
using snipwren::XcbOwned;
using Watched = snipwren::TapGuard::Watched;
using Clock = std::chrono::steady_clock;
constexpr int lookEveryMilliseconds = 150;
/// After a key was pressed; a key held back shows no further ones.
constexpr std::chrono::seconds lookFor{1};

/// T: stopped, t: held by a tracer.
bool isStopped(const std::string& statFile) {
    std::FILE* const file = std::fopen(statFile.c_str(), "re");
    if (!file) return false;
    char line[512] = {};
    const bool read = std::fgets(line, sizeof line, file) != nullptr;
    std::fclose(file);
    if (!read) return false;
    // The name in brackets may hold anything, brackets too; the state follows the last one.
    const std::string text(line);
    const std::size_t bracket = text.rfind(')');
    if (bracket == std::string::npos || bracket + 2 >= text.size()) return false;
    const char state = text[bracket + 2];
    return state == 'T' || state == 't';
}

void selectKeys(xcb_connection_t* connection, bool on) {
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } select{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, on ? std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS} : 0U};
    xcb_input_xi_select_events(connection, snipwren::rootWindow(connection), 1, &select.head);
    xcb_flush(connection);
}
/// False when there is nobody any more who would send.
bool receive(Watched& watched, FileDescriptor& tapConnection) {
    iovec data{&watched, sizeof watched};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(STDIN_FILENO, &message, MSG_CMSG_CLOEXEC) != static_cast<ssize_t>(sizeof watched)) return false;
    const cmsghdr* const descriptor = CMSG_FIRSTHDR(&message);
    if (!descriptor || descriptor->cmsg_type != SCM_RIGHTS) return false;
    int received = -1;
    std::memcpy(&received, CMSG_DATA(descriptor), sizeof received);
    tapConnection = FileDescriptor(received);
    return true;
}

/// Lets go of every key and gives the one that waits for an answer to its application. Only the client that holds a key
/// can do that, so the requests are written into its own connection, whose owner is stopped; it cannot count them and
/// must not use that connection again.
void answerInItsPlace(const Watched& watched, const FileDescriptor& tapConnection, std::uint32_t root) {
    struct {
        xcb_input_xi_passive_ungrab_device_request_t ungrab;
        std::uint32_t anyModifier;
        xcb_input_xi_allow_events_request_t allow;
    } requests{};
    requests.ungrab.major_opcode = watched.inputOpcode;
    requests.ungrab.minor_opcode = XCB_INPUT_XI_PASSIVE_UNGRAB_DEVICE;
    requests.ungrab.length = (sizeof requests.ungrab + sizeof requests.anyModifier) / 4;
    requests.ungrab.grab_window = root;
    requests.ungrab.deviceid = watched.masterDevice;
    requests.ungrab.num_modifiers = 1;
    requests.ungrab.grab_type = XCB_INPUT_GRAB_TYPE_KEYCODE;
    requests.anyModifier = XCB_INPUT_MODIFIER_MASK_ANY;
    requests.allow.major_opcode = watched.inputOpcode;
    requests.allow.minor_opcode = XCB_INPUT_XI_ALLOW_EVENTS;
    requests.allow.length = sizeof requests.allow / 4;
    requests.allow.deviceid = watched.masterDevice;
    requests.allow.event_mode = XCB_INPUT_EVENT_MODE_REPLAY_DEVICE;
    (void)!::send(tapConnection.get(), &requests, sizeof requests, MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::uint32_t processOf(xcb_connection_t* c, xcb_window_t window) {
    const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const XcbOwned<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(c, xcb_res_query_client_ids(c, 1, &spec), nullptr));
    if (!reply) return 0;
    const auto ids = xcb_res_query_client_ids_ids_iterator(reply.get());
    return ids.rem > 0 && xcb_res_client_id_value_value_length(ids.data) > 0 ? *xcb_res_client_id_value_value(ids.data)
                                                                             : 0;
}

/// The overlay has the whole keyboard as long as it is on the screen.
void hideOverlay(xcb_connection_t* c, std::uint32_t process) {
    const XcbOwned<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(c, xcb_query_tree(c, snipwren::rootWindow(c)), nullptr));
    if (!tree) return;
    const xcb_window_t* const windows = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        const XcbOwned<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, windows[i]), nullptr));
        if (state && state->override_redirect && state->map_state == XCB_MAP_STATE_VIEWABLE
            && processOf(c, windows[i]) == process)
            xcb_unmap_window(c, windows[i]);
    }
}
} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("snipwren-tapguard is started by snipwren and has no use of its own.\n", stderr);
        return 2;
    }
    const std::string statFile = "/proc/" + std::to_string(std::atol(argv[1])) + "/stat";
    const snipwren::XcbConnection connection = snipwren::connectToDisplay();
    if (!connection) return 1;
    xcb_connection_t* const c = connection.get();
    const XcbOwned<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (!version) return 1;
    selectKeys(c, true);

    const auto process = static_cast<std::uint32_t>(std::atol(argv[1]));
    Watched watched;
    FileDescriptor tapConnection;
    bool looking = false;
    Clock::time_point lookUntil;
    int stoppedLooks = 0;
    for (;;) {
        pollfd wait[] = {{STDIN_FILENO, POLLIN, 0}, {xcb_get_file_descriptor(c), POLLIN, 0}};
        poll(wait, 2, looking ? lookEveryMilliseconds : -1);
        if (wait[0].revents != 0 && !receive(watched, tapConnection)) return 0;
        bool pressed = false;
        while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(c)}) pressed = true;
        if (xcb_connection_has_error(c)) return 0;
        if (pressed && !looking) {
            // One key is enough to look for a while; the next ones need not wake this program.
            selectKeys(c, false);
            looking = true;
            lookUntil = Clock::now() + lookFor;
            stoppedLooks = 0;
            continue;
        }
        if (!looking || wait[0].revents != 0 || wait[1].revents != 0) continue;
        stoppedLooks = isStopped(statFile) ? stoppedLooks + 1 : 0;
        // Twice, because a tracer also stops a program for an instant.
        if (stoppedLooks >= 2 && tapConnection) {
            hideOverlay(c, process);
            answerInItsPlace(watched, tapConnection, snipwren::rootWindow(c));
            // The server takes requests of each connection in turn: one round trip, and those have been carried out.
            snipwren::roundTrip(c);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            xcb_kill_client(c, watched.window);
            tapConnection.reset();
            snipwren::roundTrip(c);
        }
        if (Clock::now() >= lookUntil) {
            looking = false;
            selectKeys(c, true);
        }
    }
}
