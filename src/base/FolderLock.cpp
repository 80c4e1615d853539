#include "base/FolderLock.h"

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace snipwren {
FolderLock::FolderLock(const std::string& folder) : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (fd_ >= 0 && ::flock(fd_, LOCK_EX | LOCK_NB) != 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

FolderLock::~FolderLock() {
    if (fd_ >= 0) ::close(fd_);
}
} // namespace snipwren
