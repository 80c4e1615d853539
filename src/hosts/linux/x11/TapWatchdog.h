#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "hosts/linux/FileDescriptor.h"

namespace snipwren {
/// Watches over the answers of the tap: when one takes longer than the limit, calls `release` on a thread of its own, so
/// that the keyboard goes on whatever the tap's thread hangs in. Sleeps while no key is pressed.
class TapWatchdog {
public:
    TapWatchdog(std::chrono::milliseconds limit, std::function<void()> release);
    ~TapWatchdog();
    TapWatchdog(const TapWatchdog&) = delete;
    TapWatchdog& operator=(const TapWatchdog&) = delete;

    /// False when the system has no timer or thread for it.
    bool start();
    /// Around each answer, on the tap's thread.
    void begin();
    /// False when the release happened meanwhile: the answer comes too late.
    bool end();

private:
    static constexpr std::int64_t released = -1;
    void watch();
    void arm(std::chrono::nanoseconds delay);

    const std::chrono::nanoseconds limit_;
    const std::function<void()> release_;
    FileDescriptor timer_;
    /// When the running answer began, in nanoseconds of the monotonic clock; 0 for none.
    std::atomic<std::int64_t> begun_ = 0;
    std::atomic<bool> armed_ = false;
    std::atomic<bool> stopping_ = false;
    std::mutex releasing_;
    std::thread thread_;
};
} // namespace snipwren
