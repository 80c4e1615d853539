#include "scheduler/SchedulerProtocol.h"

#include <cstdint>

#include <fmt/format.h>

namespace snipwren {
bool SchedulerProtocol::isSeparate(const Paths& paths) {
    return paths.applicationSupport == Paths::under(paths.home).applicationSupport;
}

std::string SchedulerProtocol::busName(const Paths& paths) {
    if (!isSeparate(paths)) return defaultBusName;
    // FNV-1a: the same in every build, which std::hash does not promise.
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : paths.home) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    return fmt::format("{}.at{:016x}", defaultBusName, hash);
}
} // namespace snipwren
