#pragma once

#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

namespace snipwren {
/// The key presses that we post ourselves and the tap has not met yet. The tap cannot tell them from those of an on-screen
/// keyboard or a remote desktop by their device, so each is announced here before it is posted. Thread safe.
class OwnKeys {
public:
    using Clock = std::chrono::steady_clock;

    void expect(std::uint8_t keycode) {
        const std::lock_guard lock(mutex_);
        expected_.push_back({keycode, Clock::now() + forgottenAfter});
    }
    /// The tap met a press from the device that posts keys; true when it is ours.
    bool consume(std::uint8_t keycode) {
        const std::lock_guard lock(mutex_);
        dropStale();
        for (auto it = expected_.begin(); it != expected_.end(); ++it) {
            if (it->keycode != keycode) continue;
            expected_.erase(it);
            changed_.notify_all();
            return true;
        }
        return false;
    }
    /// Waits until the tap has let all of them through, so that whatever takes the keyboard next does not get them too.
    void waitUntilPassed(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        if (watched_) changed_.wait_for(lock, limit, [this] { return expected_.empty() || !watched_; });
        if (!watched_) expected_.clear();
    }
    /// Whether a tap runs that meets what is posted.
    void setWatched(bool watched) {
        const std::lock_guard lock(mutex_);
        watched_ = watched;
        expected_.clear();
        changed_.notify_all();
    }

private:
    static constexpr std::chrono::seconds forgottenAfter{2};
    struct Expected {
        std::uint8_t keycode;
        Clock::time_point until;
    };
    void dropStale() {
        const auto now = Clock::now();
        while (!expected_.empty() && expected_.front().until < now) expected_.pop_front();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Expected> expected_;
    bool watched_ = false;
};
} // namespace snipwren
