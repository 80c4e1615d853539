#include "shell/FileOpener.h"

#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace snipwren {
namespace {
/// An address names its scheme; everything else is a path, which must not be taken for an option.
bool isAcceptable(const std::string& text) {
    return !text.empty() && text.find('\0') == std::string::npos
           && (text.front() == '/' || text.find("://") != std::string::npos || text.rfind("mailto:", 0) == 0);
}
} // namespace

bool FileOpener::open(const std::string& pathOrUrl) {
    if (!isAcceptable(pathOrUrl)) return false;
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(lingering_, [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {0, 1, 2})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", descriptor == 0 ? O_RDONLY : O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A group of its own: what it started lives on when we end.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::string program = program_;
    std::string argument = pathOrUrl;
    char* const arguments[] = {program.data(), argument.data(), nullptr};
    pid_t child = -1;
    const int failed = posix_spawnp(&child, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) return false;

    const auto end = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (std::chrono::steady_clock::now() < end) {
        if (waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const std::lock_guard lock(mutex_);
    lingering_.push_back(child);
    return true;
}
} // namespace snipwren
