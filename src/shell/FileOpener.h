#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include <sys/types.h>

namespace snipwren {
/// Opens files, folders and addresses with the program that the desktop chose for them. The opener runs by itself: the
/// toolkit's own call reports success also when it failed. Thread safe.
class FileOpener {
public:
    static constexpr std::chrono::seconds patience{3};

    /// The opener's program is looked up in PATH.
    explicit FileOpener(std::string program = "xdg-open") : program_(std::move(program)) {}
    /// False when it could not be started or reported a failure within the patience; an opener that still runs then has
    /// opened something. Blocks for that time.
    bool open(const std::string& pathOrUrl);

private:
    const std::string program_;
    std::mutex mutex_;
    /// Openers that outlived the patience; their exit status has yet to be taken.
    std::vector<pid_t> lingering_;
};
} // namespace snipwren
