#include "hosts/linux/x11/TapGuard.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

extern char** environ;

namespace snipwren {
TapGuard::~TapGuard() {
    socket_.reset(); // The guard ends when its socket does.
    if (process_ > 0) {
        while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
    }
}

bool TapGuard::start(const std::string& program) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
    FileDescriptor ours(ends[0]);
    const FileDescriptor theirs(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDIN_FILENO);
    // A signal to our process group (Ctrl+C, Ctrl+Z in a terminal) must not stop the guard as well.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    std::string pid = std::to_string(getpid());
    std::string name = program;
    char* arguments[] = {name.data(), pid.data(), nullptr};
    const int failed = posix_spawn(&process_, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        process_ = -1;
        return false;
    }
    socket_ = std::move(ours);
    return true;
}

void TapGuard::watch(const Watched& watched, int connectionDescriptor) {
    if (!socket_) return;
    Watched sent = watched;
    iovec data{&sent, sizeof sent};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const descriptor = CMSG_FIRSTHDR(&message);
    descriptor->cmsg_level = SOL_SOCKET;
    descriptor->cmsg_type = SCM_RIGHTS;
    descriptor->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(descriptor), &connectionDescriptor, sizeof(int));
    if (::sendmsg(socket_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno == EPIPE) socket_.reset();
}
} // namespace snipwren
