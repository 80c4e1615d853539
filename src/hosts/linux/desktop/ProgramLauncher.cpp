#include "hosts/linux/desktop/ProgramLauncher.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/Text.h"

extern char** environ;

namespace snipwren {
std::optional<std::string> ProgramLauncher::find(const std::string& name) {
    std::vector<std::string> folders;
    std::array<char, PATH_MAX> own{};
    const ssize_t length = ::readlink("/proc/self/exe", own.data(), own.size() - 1);
    if (length > 0) {
        const std::string folder = parentPath(std::string_view(own.data(), static_cast<std::size_t>(length)));
        folders = {folder, folder + "/../scheduler", folder + "/../eds"};
    }
    const char* path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): nothing here changes the environment.
    for (const std::string_view folder : split(path ? path : "", ':'))
        if (!folder.empty()) folders.emplace_back(folder);
    for (const std::string& folder : folders) {
        std::string candidate = joinedPath(folder, name);
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

bool ProgramLauncher::startDetached(const std::string& path,
                                    const std::vector<std::pair<std::string, std::string>>& environment) {
    // Everything that allocates is done before the fork: another thread may hold the allocator's lock.
    std::vector<std::string> variables;
    for (char** variable = environ; *variable; ++variable) variables.emplace_back(*variable);
    for (const auto& [name, value] : environment) {
        std::erase_if(variables, [&, &key = name](const auto& held) { return held.rfind(key + "=", 0) == 0; });
        variables.push_back(name + "=" + value);
    }
    std::vector<char*> pointers;
    for (std::string& variable : variables) pointers.push_back(variable.data());
    pointers.push_back(nullptr);
    std::string program = path;
    char* const arguments[] = {program.data(), nullptr};

    const pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) {
        ::setsid();
        // The second fork hands the program to init, so that it is nobody's zombie.
        const pid_t grandchild = ::fork();
        if (grandchild != 0) ::_exit(grandchild < 0 ? 1 : 0);
        const int null = ::open("/dev/null", O_RDWR);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
        // Pipes and locks of whoever started us must not stay open as long as the program lives.
        ::close_range(STDERR_FILENO + 1, ~0U, 0);
        ::execve(arguments[0], arguments, pointers.data());
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
} // namespace snipwren
