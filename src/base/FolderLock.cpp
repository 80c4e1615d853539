#include "base/FolderLock.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace snipwren {
FolderLock::FolderLock(const std::string& folder) : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (fd_ >= 0 && ::flock(fd_, LOCK_EX) != 0)
        if (errno != EINTR) break;
}

FolderLock::~FolderLock() {
    if (fd_ >= 0) ::close(fd_);
}
} // namespace snipwren
