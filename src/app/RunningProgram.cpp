#include "app/RunningProgram.h"

#include <climits>

#include <sys/utsname.h>
#include <unistd.h>

namespace snipwren {
namespace {
/// Counts up with every release, whatever its version is called.
constexpr std::int64_t buildNumber = 1;

/// Distributions number themselves in their own ways; the kernel's number is the one that all of them share.
std::string systemVersion() {
    struct utsname system {};
    if (::uname(&system) != 0) return {};
    const std::string release = system.release;
    return release.substr(0, release.find_first_not_of("0123456789."));
}

std::string programPath() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}
} // namespace

RunningBuild runningProgram() {
    return {SNIPWREN_VERSION, buildNumber, systemVersion(), programPath().starts_with("/usr/")};
}
} // namespace snipwren
