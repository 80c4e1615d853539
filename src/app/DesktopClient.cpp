#include "app/DesktopClient.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace snipwren {
namespace {
using SteadyClock = std::chrono::steady_clock;
constexpr const char* objectPath = "/org/snipwren/Desktop";
constexpr const char* interfaceName = "org.snipwren.Desktop1";
constexpr std::chrono::milliseconds lookAgain{50};

/// The bus's own library throws; nothing beyond this function does.
template <class Function>
auto overTheBus(Function call) -> Result<decltype(call(std::declval<sdbus::IProxy&>())), DesktopError> {
    try {
        const auto connection = sdbus::createSessionBusConnection();
        const auto proxy = sdbus::createProxy(*connection, DesktopClient::service, objectPath);
        return call(*proxy);
    } catch (const sdbus::Error& error) {
        if (error.getName() == "org.freedesktop.DBus.Error.ServiceUnknown"
            || error.getName() == "org.freedesktop.DBus.Error.NameHasNoOwner")
            return unexpected(DesktopError{});
        if (error.getName() == "org.freedesktop.DBus.Error.NoReply"
            || error.getName() == "org.freedesktop.DBus.Error.Timeout")
            return unexpected(
                DesktopError{"Snipwren runs but does not answer. Try: snipwren stop, then snipwren start"});
        return unexpected(DesktopError{"The session bus cannot be used (" + error.getMessage()
                                       + "). Run this inside your desktop session."});
    }
}

bool runs() {
    const auto status = DesktopClient::status();
    return status && *status;
}

std::string allOf(int file) {
    std::string text;
    char buffer[512];
    lseek(file, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(file, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}
} // namespace

Result<std::optional<std::string>, DesktopError> DesktopClient::status() {
    auto answer = overTheBus([](sdbus::IProxy& proxy) {
        std::string json;
        proxy.callMethod("Status").onInterface(interfaceName).withTimeout(callTimeout).storeResultsTo(json);
        return json;
    });
    if (answer) return std::optional(std::move(*answer));
    // No sentence: nobody owns the name.
    if (answer.error().description.empty()) return std::optional<std::string>();
    return unexpected(std::move(answer.error()));
}

Result<bool, DesktopError> DesktopClient::capture(const std::string& commandWord) {
    auto answer = overTheBus([&](sdbus::IProxy& proxy) {
        bool known = false;
        proxy.callMethod("Capture")
            .onInterface(interfaceName)
            .withTimeout(callTimeout)
            .withArguments(commandWord)
            .storeResultsTo(known);
        return known;
    });
    if (!answer && answer.error().description.empty())
        return unexpected(DesktopError{"Snipwren is not running. Try: snipwren start"});
    return answer;
}

Result<std::optional<std::pair<bool, std::string>>, DesktopError> DesktopClient::undo() {
    using Answer = std::optional<std::pair<bool, std::string>>;
    auto answer = overTheBus([](sdbus::IProxy& proxy) {
        bool done = false;
        std::string sentence;
        proxy.callMethod("Undo").onInterface(interfaceName).withTimeout(undoTimeout).storeResultsTo(done, sentence);
        return std::pair(done, sentence);
    });
    if (answer) return Answer(std::move(*answer));
    if (answer.error().description.empty()) return Answer();
    return unexpected(std::move(answer.error()));
}

Result<bool, DesktopError> DesktopClient::stop() {
    const auto asked = overTheBus([](sdbus::IProxy& proxy) {
        proxy.callMethod("Quit").onInterface(interfaceName).withTimeout(callTimeout);
        return true;
    });
    if (!asked) {
        if (asked.error().description.empty()) return false;
        return unexpected(asked.error());
    }
    for (const auto end = SteadyClock::now() + stopTimeout; SteadyClock::now() < end;
         std::this_thread::sleep_for(lookAgain)) {
        if (!runs()) return true;
    }
    return unexpected(DesktopError{"Snipwren was asked to end and has not. Wait for running captures and try again."});
}

Result<void, DesktopError> DesktopClient::start(const std::string& program) {
    if (program.empty())
        return unexpected(DesktopError{"The desktop program (snipwren-desktop) is not installed beside this one."});
    // A file without a name takes what the program writes until it is up; a pipe would break when this program ends.
    const int words = memfd_create("snipwren-desktop", MFD_CLOEXEC);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (nothing >= 0) {
        posix_spawn_file_actions_adddup2(&actions, nothing, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, nothing, STDOUT_FILENO);
    }
    if (words >= 0) posix_spawn_file_actions_adddup2(&actions, words, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID); // Closing the terminal does not end it.
    std::string name = program;
    char* arguments[] = {name.data(), nullptr};
    pid_t child = -1;
    const int failed = posix_spawn(&child, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (nothing >= 0) close(nothing);
    Result<void, DesktopError> result =
        unexpected(DesktopError{"Snipwren was started but did not answer in time. Its log may say why."});
    if (failed != 0) {
        result = unexpected(
            DesktopError{"The desktop program could not be started: " + std::string(std::strerror(failed)) + "."});
    } else {
        for (const auto end = SteadyClock::now() + startTimeout; SteadyClock::now() < end;
             std::this_thread::sleep_for(lookAgain)) {
            if (runs()) {
                result = {};
                break;
            }
            int state = 0;
            if (waitpid(child, &state, WNOHANG) != child) continue;
            const std::string said = words >= 0 ? allOf(words) : std::string();
            result = unexpected(
                DesktopError{said.empty() ? "The desktop program ended at once. Try: snipwren doctor" : said});
            break;
        }
    }
    if (words >= 0) close(words);
    return result;
}

std::string DesktopClient::findProgram() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const fs::path& place : {here / "snipwren-desktop", here / "../shell/snipwren-desktop"}) {
        if (access(place.c_str(), X_OK) == 0) return place.lexically_normal().string();
    }
    return {};
}
} // namespace snipwren
