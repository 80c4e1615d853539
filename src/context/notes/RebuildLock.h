#pragma once

#include <stop_token>
#include <string>

namespace snipwren {
/// One rebuild of the index at a time among all programs of this user. Held for the object's lifetime; the system lets
/// go of it when the holder is killed.
class RebuildLock {
public:
    /// Waits for its turn, unless stopped. A file that cannot be locked is gone on without.
    RebuildLock(const std::string& path, const std::stop_token& stop);
    RebuildLock(const RebuildLock&) = delete;
    RebuildLock& operator=(const RebuildLock&) = delete;
    ~RebuildLock();

private:
    int fd_;
};
} // namespace snipwren
