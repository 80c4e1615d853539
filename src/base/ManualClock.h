#pragma once

#include <mutex>

#include "base/Clock.h"

namespace snipwren {
/// A clock that only moves when told to: the virtual desktop's and the tests'. Thread safe.
class ManualClock final : public Clock {
public:
    explicit ManualClock(TimePoint start) : now_(start) {}

    TimePoint now() const override {
        const std::lock_guard lock(mutex_);
        return now_;
    }
    SteadyPoint steadyNow() const override {
        const std::lock_guard lock(mutex_);
        return steady_;
    }
    /// Moves both clocks forward, as the passing of time does.
    void advance(Duration by) {
        const std::lock_guard lock(mutex_);
        now_ += by;
        steady_ += by;
    }
    /// Steps the wall clock alone, as a user or a time server does.
    void stepWallClock(TimePoint to) {
        const std::lock_guard lock(mutex_);
        now_ = to;
    }

private:
    mutable std::mutex mutex_;
    TimePoint now_;
    SteadyPoint steady_{};
};
} // namespace snipwren
