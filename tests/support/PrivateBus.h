#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TemporaryFolder.h"

extern char** environ;

namespace snipwren {
/// A session bus of the test's own, on which nothing is started by itself (or only what the folder of service files names); this process and its children use it as theirs.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& serviceFolder = "") {
        std::ofstream(folder_.file("bus.conf"))
            << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n<busconfig><type>session</type>"
            << "<listen>unix:path=" << folder_.file("bus") << "</listen>"
            << (serviceFolder.empty() ? "" : "<servicedir>" + serviceFolder + "</servicedir>")
            << "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
               "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
        std::array<int, 2> ready{};
        if (::pipe(ready.data()) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
        // It complains about limits that a container does not let it raise.
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::string config = "--config-file=" + folder_.file("bus.conf");
        std::string words[] = {"dbus-daemon", "--nofork", "--print-address"};
        char* arguments[] = {words[0].data(), config.data(), words[1].data(), words[2].data(), nullptr};
        const int failed = ::posix_spawnp(&process_, "dbus-daemon", &actions, nullptr, arguments, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ready[1]);
        char byte = 0; // The address is printed once the bus listens.
        if (failed != 0 || ::read(ready[0], &byte, 1) != 1) std::abort();
        ::close(ready[0]);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + folder_.file("bus")).c_str(), 1);
    }
    PrivateBus(const PrivateBus&) = delete;
    ~PrivateBus() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }

private:
    TemporaryFolder folder_;
    pid_t process_ = -1;
};
} // namespace snipwren
