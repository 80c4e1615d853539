#include "base/FileIO.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/TemporaryFile.h"

namespace snipwren {
namespace {
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    /// Some file systems report a failed write only here.
    bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

private:
    int fd_;
};

int openRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd = -1;
    do fd = ::open(path, flags | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return fd;
}

/// False with errno set when not all bytes could be written.
bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// False when somebody else holds the lock beyond our patience, or the file system has none.
bool lockWithin(int fd, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (auto pause = std::chrono::microseconds(100);; pause = std::min(2 * pause, std::chrono::microseconds(20'000))) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(pause);
    }
}

/// Whether the path still names the open file, which may have been replaced while its lock was waited for.
bool isStillAt(const std::string& path, int fd) {
    struct stat open {};
    struct stat named {};
    return ::fstat(fd, &open) == 0 && ::stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev
           && open.st_ino == named.st_ino;
}

std::string resolvedLink(const std::string& path) {
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) ? std::string(buffer) : path;
}

void syncFolder(const std::string& path) {
    const Descriptor folder(openRetrying(path.c_str(), O_RDONLY | O_DIRECTORY));
    if (folder.valid()) ::fsync(folder.get()); // Best effort: some file systems have no folder sync.
}
} // namespace

FileError FileError::from(std::string_view action, const std::string& path, int code) {
    return {code, "Could not " + std::string(action) + " \"" + path
                      + "\": " + std::error_code(code, std::generic_category()).message()};
}

FileIO::Answer<std::string> PosixFileIO::read(const std::string& path) {
    const Descriptor file(openRetrying(path.c_str(), O_RDONLY));
    struct stat info {};
    if (!file.valid() || ::fstat(file.get(), &info) != 0) return unexpected(FileError::from("read", path, errno));
    if (S_ISDIR(info.st_mode)) return unexpected(FileError::from("read", path, EISDIR));
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(std::max<off_t>(info.st_size, 0)));
    char chunk[65536];
    while (true) {
        const ssize_t count = ::read(file.get(), chunk, sizeof chunk);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return unexpected(FileError::from("read", path, errno));
        if (count == 0) return bytes;
        bytes.append(chunk, static_cast<std::size_t>(count));
    }
}

FileIO::Answer<void> PosixFileIO::writeAtomic(const std::string& path, std::string_view bytes,
                                              std::optional<unsigned> mode) {
    const std::string target = resolvedLink(path);
    const auto fail = [&](const FileError& error) { return unexpected(FileError::from("write", path, error.code)); };
    auto file = TemporaryFile::create(parentPath(target));
    if (!file) return fail(file.error());
    mode_t wanted = 0;
    if (struct stat info{}; mode) {
        wanted = *mode;
    } else if (::stat(target.c_str(), &info) == 0) {
        wanted = info.st_mode & 07777;
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        wanted = 0666 & ~mask;
    }
    if (const auto done = file->setMode(wanted); !done) return fail(done.error());
    if (const auto done = file->write(bytes); !done) return fail(done.error());
    if (const auto done = file->publish(fileName(target)); !done) return fail(done.error());
    return {};
}

FileIO::Answer<void> PosixFileIO::append(const std::string& path, std::string_view bytes,
                                         const AppendOptions& options) {
    const auto fail = [&](int code) { return unexpected(FileError::from("write to", path, code)); };
    constexpr int mostReplacements = 100;
    int fd = -1;
    for (int attempt = 0;; ++attempt) {
        // Read access serves only to look at the last byte; a file that may not be read is appended to all the same.
        fd = openRetrying(path.c_str(), O_RDWR | O_APPEND | O_CREAT, options.mode.value_or(0666));
        if (fd < 0 && errno == EACCES) fd = openRetrying(path.c_str(), O_WRONLY | O_APPEND);
        if (fd < 0) return fail(errno);
        (void)lockWithin(fd, lockPatience);
        if (isStillAt(path, fd) || attempt == mostReplacements) break;
        ::close(fd);
    }
    Descriptor file(fd);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0) return fail(errno);
    std::string joined;
    if (char last = '\n'; options.onFreshLine && info.st_size > 0) {
        if (::pread(file.get(), &last, 1, info.st_size - 1) == 1 && last != '\n') {
            joined.reserve(bytes.size() + 1);
            joined.append(1, '\n').append(bytes);
            bytes = joined;
        }
    }
    if (!writeAll(file.get(), bytes)) {
        const int code = errno;
        if (S_ISREG(info.st_mode) && ::ftruncate(file.get(), info.st_size) != 0) return fail(code);
        return fail(code);
    }
    if (options.durable && ::fsync(file.get()) != 0) return fail(errno);
    // A file that may be new: its name has to be on the disk, too.
    if (options.durable && info.st_size == 0) syncFolder(parentPath(path));
    if (!file.close()) return fail(errno);
    return {};
}

FileIO::Answer<void> PosixFileIO::rewrite(const std::string& path, const Change& change, std::optional<unsigned> mode) {
    constexpr int mostReplacements = 100;
    for (int attempt = 0; attempt < mostReplacements; ++attempt) {
        const Descriptor lock(openRetrying(path.c_str(), O_RDONLY | O_CREAT, mode.value_or(0666)));
        if (!lock.valid()) return unexpected(FileError::from("open", path, errno));
        if (!lockWithin(lock.get(), lockPatience)) return unexpected(FileError::from("lock", path, EBUSY));
        if (!isStillAt(path, lock.get())) continue;
        auto bytes = read(path);
        if (!bytes) return unexpected(bytes.error());
        const auto changed = change(*std::move(bytes));
        return changed ? writeAtomic(path, *changed, mode) : Answer<void>();
    }
    return unexpected(FileError::from("lock", path, EBUSY));
}

FileIO::Answer<void> PosixFileIO::createFolders(const std::string& path, std::optional<unsigned> mode) {
    if (path.empty()) return unexpected(FileError::from("create the folder", path, ENOENT));
    if (isFolder(path)) return {};
    const std::string parent = parentPath(path);
    if (!parent.empty() && parent != path)
        if (auto made = createFolders(parent, mode); !made) return made;
    if (::mkdir(path.c_str(), mode.value_or(0777)) != 0 && !(errno == EEXIST && isFolder(path)))
        return unexpected(FileError::from("create the folder", path, errno));
    return {};
}

FileIO::Answer<void> PosixFileIO::setMode(const std::string& path, unsigned mode) {
    if (::chmod(path.c_str(), mode) != 0) return unexpected(FileError::from("set the permissions of", path, errno));
    return {};
}

FileIO::Answer<void> PosixFileIO::remove(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) return unexpected(FileError::from("remove", path, errno));
    return {};
}

FileIO::Answer<void> PosixFileIO::rename(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) return unexpected(FileError::from("move", from, errno));
    syncFolder(parentPath(to));
    return {};
}

bool PosixFileIO::exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool PosixFileIO::isFolder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

FileIO::Answer<std::uint64_t> PosixFileIO::size(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return unexpected(FileError::from("read", path, errno));
    return static_cast<std::uint64_t>(info.st_size);
}

FileIO::Answer<std::vector<std::string>> PosixFileIO::list(const std::string& path) {
    DIR* folder = ::opendir(path.c_str());
    if (!folder) return unexpected(FileError::from("read the folder", path, errno));
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(folder)) { // NOLINT(concurrency-mt-unsafe): one stream, one thread.
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(folder);
    std::sort(names.begin(), names.end());
    return names;
}

std::string parentPath(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    return slash == 0 ? "/" : std::string(path.substr(0, slash));
}

std::string fileName(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string joinedPath(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty() && path.back() != '/') path += '/';
    while (!path.empty() && !name.empty() && name.front() == '/') name.remove_prefix(1);
    return path.append(name);
}
} // namespace snipwren
