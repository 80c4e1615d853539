#include "base/TemporaryFile.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace snipwren {
namespace {
FileError failed(std::string_view action, const std::string& path) { return FileError::from(action, path, errno); }

/// A name in the folder that nobody uses; the file is made with it.
int namedFile(const std::string& folder, std::string& path) {
    path = joinedPath(folder, ".snipwren-XXXXXX");
    return ::mkostemp(path.data(), O_CLOEXEC);
}
} // namespace

Result<TemporaryFile, FileError> TemporaryFile::create(const std::string& folder) {
#ifdef O_TMPFILE
    const int nameless = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, privateFileMode);
    if (nameless >= 0) return TemporaryFile(nameless, folder, {});
#endif
    std::string path;
    const int file = namedFile(folder, path);
    if (file < 0) return unexpected(failed("create a file in", folder));
    return TemporaryFile(file, folder, std::move(path));
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : file_(std::exchange(other.file_, -1)),
      folder_(std::move(other.folder_)),
      path_(std::exchange(other.path_, {})) {}

TemporaryFile::~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
    if (file_ >= 0) ::close(file_);
}

Result<void, FileError> TemporaryFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return unexpected(failed("write to a file in", folder_));
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

Result<void, FileError> TemporaryFile::publish(const std::string& name) {
    const std::string target = joinedPath(folder_, name);
    if (::fsync(file_) != 0) return unexpected(failed("write", target));
    if (path_.empty()) {
        // A nameless file can get a name, but not one that is taken; so first a free one.
        std::string free;
        const int placeholder = namedFile(folder_, free);
        if (placeholder < 0) return unexpected(failed("write", target));
        ::close(placeholder);
        ::unlink(free.c_str());
        const std::string handle = "/proc/self/fd/" + std::to_string(file_);
        if (::linkat(AT_FDCWD, handle.c_str(), AT_FDCWD, free.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return unexpected(failed("write", target));
        path_ = free;
    }
    if (::rename(path_.c_str(), target.c_str()) != 0) return unexpected(failed("write", target));
    path_.clear();
    // The rename lasts a power cut only when the folder is on the disk too.
    if (const int folder = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
    return {};
}
} // namespace snipwren
