#include "base/TemporaryFile.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace snipwren {
namespace {
FileError failed(std::string_view action, const std::string& path) { return FileError::from(action, path, errno); }

/// Gives a nameless file a name; EEXIST when it is taken.
bool giveName(int file, const std::string& path) {
    const std::string handle = "/proc/self/fd/" + std::to_string(file);
    return ::linkat(AT_FDCWD, handle.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

std::string unusedName(const std::string& folder) {
    static std::atomic<unsigned> counter = 0;
    return joinedPath(folder, ".snipwren-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
}
} // namespace

Result<TemporaryFile, FileError> TemporaryFile::create(const std::string& folder) {
#ifdef O_TMPFILE
    int nameless = -1;
    do nameless = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, privateFileMode);
    while (nameless < 0 && errno == EINTR);
    if (nameless >= 0) return TemporaryFile(nameless, folder, {});
#endif
    std::string path = joinedPath(folder, ".snipwren-XXXXXX");
    const int file = ::mkostemp(path.data(), O_CLOEXEC);
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
        // It cannot take the name of an older file, only a free one, from which it then replaces that file.
        bool isNamed = giveName(file_, target);
        const bool isInPlace = isNamed;
        for (int attempt = 0; !isNamed && errno == EEXIST && attempt < 100; ++attempt) {
            path_ = unusedName(folder_);
            isNamed = giveName(file_, path_);
        }
        if (!isNamed) {
            const FileError error = failed("write", target);
            path_.clear();
            return unexpected(error);
        }
        if (isInPlace) return flushFolder();
    }
    if (::rename(path_.c_str(), target.c_str()) != 0) return unexpected(failed("write", target));
    path_.clear();
    return flushFolder();
}

Result<void, FileError> TemporaryFile::flushFolder() const {
    // A name lasts a power cut only when the folder is on the disk too.
    if (const int folder = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
    return {};
}

Result<void, FileError> TemporaryFile::setMode(unsigned mode) {
    if (::fchmod(file_, mode) != 0) return unexpected(failed("set the permissions of a file in", folder_));
    return {};
}
} // namespace snipwren
