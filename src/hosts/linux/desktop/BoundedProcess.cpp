#include "hosts/linux/desktop/BoundedProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): POSIX leaves it to the program.

namespace snipwren {
namespace {
/// How long a stop may go unnoticed.
constexpr int stopInterval = 50;

class Descriptor {
public:
    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    ~Descriptor() { close(); }
    void close() {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
    int fd = -1;
};

/// What comes in is added to the text; false at the end.
bool readSome(int fd, std::string& text) {
    std::array<char, 4096> part{};
    const ssize_t count = ::read(fd, part.data(), part.size());
    if (count < 0) return errno == EINTR || errno == EAGAIN;
    if (text.size() < BoundedProcess::maxOutput) text.append(part.data(), static_cast<std::size_t>(count));
    return count > 0;
}
} // namespace

Result<BoundedProcess::Outcome, BoundedProcess::Error> BoundedProcess::run(const std::vector<std::string>& command,
                                                                           const std::string& input,
                                                                           std::chrono::milliseconds limit,
                                                                           std::stop_token stop) {
    const auto failed = [&](const std::string& what) {
        return unexpected(Error{"The program " + command.front() + " " + what});
    };
    // A socket for the input, because writing to a closed one can be told to raise no signal.
    std::array<int, 2> in{-1, -1}, out{-1, -1}, err{-1, -1};
    Descriptor ends[6];
    const bool made = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in.data()) == 0
                      && ::pipe2(out.data(), O_CLOEXEC) == 0 && ::pipe2(err.data(), O_CLOEXEC) == 0;
    const int all[] = {in[0], in[1], out[0], out[1], err[0], err[1]};
    for (std::size_t i = 0; i < 6; ++i) ends[i].fd = all[i];
    auto& [inTheirs, inOurs, outOurs, outTheirs, errOurs, errTheirs] = ends;
    if (!made) return failed("could not be started: " + std::string(std::strerror(errno)) + ".");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, inTheirs.fd, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, outTheirs.fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errTheirs.fd, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A group of its own, so that its children can be killed with it; default signals, whatever we ignore.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGCHLD, SIGPIPE}) sigaddset(&defaults, signal);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = 0;
    const int problem = ::posix_spawn(&child, arguments.front(), &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    inTheirs.close();
    outTheirs.close();
    errTheirs.close();
    if (problem != 0) return failed("could not be started: " + std::string(std::strerror(problem)) + ".");

    Outcome outcome;
    std::size_t written = 0;
    if (input.empty()) inOurs.close();
    const auto end = std::chrono::steady_clock::now() + limit;
    std::optional<const char*> ended;
    while ((outOurs.fd >= 0 || errOurs.fd >= 0) && !ended) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) ended = "did not end in time.";
        if (stop.stop_requested()) ended = "was stopped.";
        pollfd polled[] = {{inOurs.fd, POLLOUT, 0}, {outOurs.fd, POLLIN, 0}, {errOurs.fd, POLLIN, 0}};
        if (::poll(polled, 3, static_cast<int>(std::min<long>(std::max<long>(left.count(), 0), stopInterval))) <= 0)
            continue;
        if (polled[0].revents != 0) {
            const ssize_t count =
                ::send(inOurs.fd, input.data() + written, input.size() - written, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0) written += static_cast<std::size_t>(count);
            if ((count < 0 && errno != EAGAIN && errno != EINTR) || written == input.size()) inOurs.close();
        }
        if (polled[1].revents != 0 && !readSome(outOurs.fd, outcome.output)) outOurs.close();
        if (polled[2].revents != 0 && !readSome(errOurs.fd, outcome.errors)) errOurs.close();
    }
    // One that closed its streams and goes on is not waited for either: all it could say has been said.
    if (ended) ::kill(-child, SIGKILL);
    int status = 0;
    while (true) {
        const pid_t waited = ::waitpid(child, &status, ended ? 0 : WNOHANG);
        if (waited == child) break;
        if (waited < 0 && errno != EINTR) return failed("was lost.");
        if (waited == 0) {
            if (std::chrono::steady_clock::now() >= end || stop.stop_requested()) {
                ended = "did not end in time.";
                ::kill(-child, SIGKILL);
            } else {
                ::poll(nullptr, 0, 1);
            }
        }
    }
    if (ended) return failed(*ended);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}
} // namespace snipwren
