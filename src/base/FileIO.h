#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace snipwren {
/// What the file system refused: a full sentence for the user, and the system's error number for decisions.
struct FileError {
    int code = 0;
    std::string description;
    static FileError from(std::string_view action, const std::string& path, int code);
};

/// Modes of files that only their owner may read.
inline constexpr unsigned privateFileMode = 0600;
inline constexpr unsigned privateFolderMode = 0700;

/// All access to files. Paths are absolute UTF-8. Thread safe.
/// The operations that lose data when they stop half-way are whole here: writeAtomic leaves the old content or the new,
/// append writes with one call to a file opened for appending and takes back a partial write.
class FileIO {
public:
    template <class T>
    using Answer = Result<T, FileError>;
    struct AppendOptions {
        /// Mode of a file that append creates; the process's umask applies only when none is given.
        std::optional<unsigned> mode;
        /// Begin with a line feed when the file is not empty and does not end in one.
        bool onFreshLine = false;
        /// Flush to the disk before returning.
        bool durable = false;
    };

    /// How long the operations below wait for a file that another program has locked.
    static constexpr std::chrono::milliseconds lockPatience{2000};
    /// Gets the whole file, empty when there is none; the answer replaces it, none leaves it as it is.
    using Change = std::function<std::optional<std::string>(std::string bytes)>;

    virtual ~FileIO() = default;
    virtual Answer<std::string> read(const std::string& path) = 0;
    /// A temporary file in the same folder, its mode set, flushed, and renamed over the path. Without a mode an existing
    /// file keeps its own and a new one gets the umask's. A symbolic link is followed, not replaced.
    virtual Answer<void> writeAtomic(const std::string& path, std::string_view bytes,
                                     std::optional<unsigned> mode = std::nullopt) = 0;
    /// Creates the file when it is missing. The file is locked for the call, so writers do not mix their lines; a file that
    /// rewrite() replaced meanwhile is opened anew. A lock that nobody gives up is not waited for beyond lockPatience: one
    /// write call keeps the bytes together without it.
    virtual Answer<void> append(const std::string& path, std::string_view bytes, const AppendOptions& options) = 0;
    Answer<void> append(const std::string& path, std::string_view bytes) {
        return append(path, bytes, AppendOptions());
    }
    /// Reads, changes and replaces the file (as writeAtomic does) while no append and no other rewrite gets between. EBUSY
    /// when the lock cannot be had within lockPatience.
    virtual Answer<void> rewrite(const std::string& path, const Change& change,
                                 std::optional<unsigned> mode = std::nullopt) = 0;
    /// With all intermediate folders; an existing folder is fine. The mode goes to the folders that are made.
    virtual Answer<void> createFolders(const std::string& path, std::optional<unsigned> mode = std::nullopt) = 0;
    virtual Answer<void> setMode(const std::string& path, unsigned mode) = 0;
    /// A missing file is no error.
    virtual Answer<void> remove(const std::string& path) = 0;
    virtual Answer<void> rename(const std::string& from, const std::string& to) = 0;
    virtual bool exists(const std::string& path) = 0;
    virtual bool isFolder(const std::string& path) = 0;
    virtual Answer<std::uint64_t> size(const std::string& path) = 0;
    /// Names, sorted, without "." and "..".
    virtual Answer<std::vector<std::string>> list(const std::string& path) = 0;
};

class PosixFileIO final : public FileIO {
public:
    Answer<std::string> read(const std::string& path) override;
    Answer<void> writeAtomic(const std::string& path, std::string_view bytes, std::optional<unsigned> mode) override;
    Answer<void> append(const std::string& path, std::string_view bytes, const AppendOptions& options) override;
    using FileIO::append;
    Answer<void> rewrite(const std::string& path, const Change& change, std::optional<unsigned> mode) override;
    Answer<void> createFolders(const std::string& path, std::optional<unsigned> mode) override;
    Answer<void> setMode(const std::string& path, unsigned mode) override;
    Answer<void> remove(const std::string& path) override;
    Answer<void> rename(const std::string& from, const std::string& to) override;
    bool exists(const std::string& path) override;
    bool isFolder(const std::string& path) override;
    Answer<std::uint64_t> size(const std::string& path) override;
    Answer<std::vector<std::string>> list(const std::string& path) override;
};

/// Without the last component; "/" for a path in the root, empty for a bare name.
std::string parentPath(std::string_view path);
/// The last component.
std::string fileName(std::string_view path);
/// One slash between the two.
std::string joinedPath(std::string_view folder, std::string_view name);
} // namespace snipwren
