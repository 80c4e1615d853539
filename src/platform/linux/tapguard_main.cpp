// snipwren-tapguard: frees the keyboard when the program with the key tap is stopped (a debugger, Ctrl+Z, SIGSTOP) while it
// may be holding a key back. Started by the tap, which sends a window of its connection over standard input; ends with it.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <xcb/xinput.h>

#include "platform/linux/XcbTypes.h"

namespace {
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
    const snipwren::XcbOwned<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (!version) return 1;
    selectKeys(c, true);

    std::uint32_t window = 0;
    bool looking = false;
    Clock::time_point lookUntil;
    int stoppedLooks = 0;
    for (;;) {
        pollfd wait[] = {{STDIN_FILENO, POLLIN, 0}, {xcb_get_file_descriptor(c), POLLIN, 0}};
        poll(wait, 2, looking ? lookEveryMilliseconds : -1);
        if (wait[0].revents != 0
            && recv(STDIN_FILENO, &window, sizeof window, 0) != static_cast<ssize_t>(sizeof window))
            return 0;
        bool pressed = false;
        while (const snipwren::XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(c)}) pressed = true;
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
        if (stoppedLooks >= 2 && window != 0) {
            xcb_kill_client(c, window);
            window = 0;
        }
        if (Clock::now() >= lookUntil) {
            looking = false;
            selectKeys(c, true);
        }
    }
}
