#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace snipwren {
/// Opens a file or an address with the program that the desktop chose for it. Thread safe.
class DesktopOpener {
public:
    /// An opener that is still at work after this time has found a program, and stays in front of it.
    static constexpr std::chrono::seconds patience{3};

    /// `command`: another program than the system's own.
    explicit DesktopOpener(std::string command = {});
    /// Blocks up to `patience`; false when the opener is missing or says that it failed.
    bool open(const std::string& pathOrUrl);

private:
    const std::string command_;
    std::mutex mutex_;
    /// Openers that outlived the patience; their exit statuses are taken at a later call.
    std::vector<int> still_;
};
} // namespace snipwren
