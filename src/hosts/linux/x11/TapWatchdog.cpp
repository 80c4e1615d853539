#include "hosts/linux/x11/TapWatchdog.h"

#include <system_error>

#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace snipwren {
namespace {
std::int64_t nowNanoseconds() { return std::chrono::steady_clock::now().time_since_epoch().count(); }
} // namespace

TapWatchdog::TapWatchdog(std::chrono::milliseconds limit, std::function<void()> release)
    : limit_(limit),
      release_(std::move(release)) {}

TapWatchdog::~TapWatchdog() {
    stopping_ = true;
    if (!thread_.joinable()) return;
    arm(std::chrono::nanoseconds(1));
    thread_.join();
}

bool TapWatchdog::start() {
    timer_ = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    if (!timer_) return false;
    try {
        thread_ = std::thread([this] { watch(); });
    } catch (const std::system_error&) {
        return false;
    }
    pthread_setname_np(thread_.native_handle(), "EventTapGuard");
    return true;
}

void TapWatchdog::arm(std::chrono::nanoseconds delay) {
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(delay.count() / 1'000'000'000);
    when.it_value.tv_nsec = static_cast<long>(delay.count() % 1'000'000'000);
    timerfd_settime(timer_.get(), 0, &when, nullptr);
}

void TapWatchdog::begin() {
    begun_ = nowNanoseconds();
    if (!armed_.exchange(true)) arm(limit_);
}

bool TapWatchdog::end() {
    if (begun_.exchange(0) != released) return true;
    const std::lock_guard lock(releasing_); // Nothing of ours may overtake the release's requests.
    return false;
}

void TapWatchdog::watch() {
    std::uint64_t expirations = 0;
    while (!stopping_ && read(timer_.get(), &expirations, sizeof expirations) == sizeof expirations) {
        std::int64_t begun = begun_;
        if (begun > 0) {
            const std::chrono::nanoseconds left = limit_ - std::chrono::nanoseconds(nowNanoseconds() - begun);
            if (left.count() > 0) {
                arm(left);
                continue;
            }
            const std::lock_guard lock(releasing_);
            if (begun_.compare_exchange_strong(begun, released)) release_();
        }
        armed_ = false;
        // An answer that began after the look above found the timer armed.
        if (begun_ > 0 && !armed_.exchange(true)) arm(limit_);
    }
}
} // namespace snipwren
