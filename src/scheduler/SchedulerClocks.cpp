#include "scheduler/SchedulerClocks.h"

#include <ctime>

#include "base/FileIO.h"
#include "base/Text.h"

namespace snipwren {
namespace {
Duration read(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec)
           + std::chrono::duration_cast<Duration>(std::chrono::nanoseconds(time.tv_nsec));
}
} // namespace

TimePoint SystemSchedulerClocks::wall() const { return TimePoint(read(CLOCK_REALTIME)); }
Duration SystemSchedulerClocks::sinceBoot() const { return read(CLOCK_BOOTTIME); }

std::string SystemSchedulerClocks::bootId() const {
    PosixFileIO files;
    const auto content = files.read("/proc/sys/kernel/random/boot_id");
    return content ? std::string(trimmed(*content)) : std::string();
}
} // namespace snipwren
