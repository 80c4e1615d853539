#include "hosts/portable/DesktopOpener.h"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace snipwren {
namespace {
#ifdef __APPLE__
constexpr const char* systemOpener = "open";
#else
constexpr const char* systemOpener = "xdg-open";
#endif
constexpr std::chrono::milliseconds firstLook{5}, slowestLook{50};
} // namespace

DesktopOpener::DesktopOpener(std::string command) : command_(command.empty() ? systemOpener : std::move(command)) {}

bool DesktopOpener::open(const std::string& pathOrUrl) {
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(still_, [](int child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
    }
    if (pathOrUrl.empty() || pathOrUrl.front() == '-') return false; // Never an option of the opener's.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Its chatter belongs on nobody's terminal.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    std::string command = command_, argument = pathOrUrl;
    char* const arguments[] = {command.data(), argument.data(), nullptr};
    pid_t child = -1;
    const int failed = ::posix_spawnp(&child, command.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) return false;

    const auto deadline = std::chrono::steady_clock::now() + patience;
    auto pause = firstLook;
    for (;;) {
        int status = 0;
        const pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (ended < 0 && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, slowestLook);
    }
    const std::lock_guard lock(mutex_);
    still_.push_back(child);
    return true;
}
} // namespace snipwren
