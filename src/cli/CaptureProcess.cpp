#include "cli/CaptureProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/Text.h"

extern char** environ;

namespace snipwren {
namespace {
/// Both ends of a pipe, closed at the end of the scope.
struct Pipe {
    Pipe() {
        if (::pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
    }
    Pipe(const Pipe&) = delete;
    ~Pipe() {
        close(0);
        close(1);
    }
    void close(int end) {
        if (ends[end] >= 0) ::close(ends[end]);
        ends[end] = -1;
    }
    int ends[2];
};

void writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return; // The child is gone; its status tells.
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string readAll(int descriptor) {
    std::string all;
    char bytes[4096];
    while (true) {
        const ssize_t count = ::read(descriptor, bytes, sizeof bytes);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return all;
        all.append(bytes, static_cast<std::size_t>(count));
    }
}
} // namespace

McpBridge::CaptureOutcome captureInOwnProcess(const McpBridge::CaptureRequest& request) {
    const auto isLetter = [](char c) { return c >= 'a' && c <= 'z'; };
    if (request.target.empty() || !std::all_of(request.target.begin(), request.target.end(), isLetter))
        return {false, "There is no such capture target. Try: note, reminders, timer or calendar"};
    if (trimmed(request.text).empty()) return {false, "There is no text to capture."};
    std::array<char, 4096> program{};
    if (::readlink("/proc/self/exe", program.data(), program.size() - 1) <= 0)
        return {false, "Snipwren could not find its own program, so nothing was captured."};
    // The bridge may run as the program beside it.
    char* const name = std::strrchr(program.data(), '/') + 1;
    if (std::strcmp(name, "snipwren-mcp") == 0) name[std::strlen("snipwren")] = '\0';
    Pipe input;
    Pipe output;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDERR_FILENO);
    std::string target = request.target;
    char command[] = "capture";
    char* const arguments[] = {program.data(), command, target.data(), nullptr};
    pid_t child = 0;
    const int failed = ::posix_spawn(&child, program.data(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) return {false, std::string("The capture could not be started: ") + std::strerror(failed) + "."};
    input.close(0);
    output.close(1);
    writeAll(input.ends[1], request.text);
    input.close(1);
    const std::string said = readAll(output.ends[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    const bool succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    std::string text(trimmed(replacedAll(said, "snipwren: ", "")));
    if (text.empty()) text = succeeded ? "Captured." : "The capture failed without saying why.";
    return {succeeded, std::move(text)};
}
} // namespace snipwren
