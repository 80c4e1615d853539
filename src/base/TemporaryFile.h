#pragma once

#include <string>
#include <string_view>

#include "base/FileIO.h"

namespace snipwren {
/// A new private file that takes shape out of sight and appears under its name only when it is whole. Dropped before
/// that, it leaves nothing behind; where the file system can hold nameless files, not even when the process is killed.
class TemporaryFile {
public:
    /// In the folder where the file will end up: a rename does not cross file systems.
    static Result<TemporaryFile, FileError> create(const std::string& folder);
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) = delete;
    ~TemporaryFile();

    Result<void, FileError> setMode(unsigned mode);
    Result<void, FileError> write(std::string_view bytes);
    /// Flushes it to the disk and gives it its name in that folder, replacing an older file. Call once.
    Result<void, FileError> publish(const std::string& name);

private:
    TemporaryFile(int file, std::string folder, std::string path)
        : file_(file),
          folder_(std::move(folder)),
          path_(std::move(path)) {}

    Result<void, FileError> flushFolder() const;

    int file_ = -1;
    std::string folder_;
    /// Empty while the file has no name.
    std::string path_;
};
} // namespace snipwren
