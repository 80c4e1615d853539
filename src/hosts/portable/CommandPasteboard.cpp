#include "hosts/portable/CommandPasteboard.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): POSIX leaves it to the program.

namespace snipwren {
namespace {
bool isSet(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing writes the environment.
    return value && *value;
}

/// Runs the program with the text as its standard input; true when it ended well.
bool feed(const std::vector<const char*>& command, const std::string& text) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[0], STDIN_FILENO);
    // The helper stays behind to serve the clipboard: it must not keep our terminal's streams open.
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> arguments;
    for (const char* argument : command) arguments.push_back(const_cast<char*>(argument));
    arguments.push_back(nullptr);
    pid_t child = 0;
    const int failed = ::posix_spawnp(&child, command.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[0]);
    bool written = failed == 0;
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = SIG_IGN; // A helper that ends early must not end us.
    ::sigaction(SIGPIPE, &ignore, &before);
    for (std::size_t done = 0; written && done < text.size();) {
        const ssize_t count = ::write(pipe[1], text.data() + done, text.size() - done);
        if (count > 0) done += static_cast<std::size_t>(count);
        if (count < 0 && errno != EINTR) written = false;
    }
    ::sigaction(SIGPIPE, &before, nullptr);
    ::close(pipe[1]);
    if (failed != 0) return false;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return false;
    return written && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
} // namespace

bool CommandPasteboard::setString(const std::string& text) {
    const bool copied = (isSet("WAYLAND_DISPLAY") && feed({"wl-copy"}, text))
                        || (isSet("DISPLAY")
                            && (feed({"xclip", "-selection", "clipboard", "-in"}, text)
                                || feed({"xsel", "--clipboard", "--input"}, text)));
    if (copied) last_ = text;
    return copied;
}
} // namespace snipwren
