#include "context/notes/RebuildLock.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace snipwren {
RebuildLock::RebuildLock(const std::string& path, const std::stop_token& stop)
    : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    constexpr auto pause = std::chrono::milliseconds(50);
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    while (fd_ >= 0 && !stop.stop_requested() && ::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) break;
        never.wait_for(lock, stop, pause, [] { return false; });
    }
}

RebuildLock::~RebuildLock() {
    if (fd_ >= 0) ::close(fd_);
}
} // namespace snipwren
