#pragma once

#include <chrono>
#include <string>

namespace snipwren {
/// Holds an advisory lock on a folder for its lifetime, so that two of our programs take turns with the files in it.
/// Where the folder cannot be locked, or another program keeps it locked beyond our patience, the holder goes on without.
class FolderLock {
public:
    static constexpr std::chrono::milliseconds patience{2000};
    explicit FolderLock(const std::string& folder);
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

private:
    int fd_;
};
} // namespace snipwren
