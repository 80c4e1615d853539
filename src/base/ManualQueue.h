#pragma once

#include <mutex>
#include <thread>

#include "base/ManualClock.h"
#include "base/TaskSchedule.h"

namespace snipwren {
/// A serial queue that runs nothing by itself: its owner runs it by hand, on its own thread, under a manual clock.
/// sync() runs everything that waits and then the task, at once.
class ManualQueue final : public SerialQueue {
public:
    ManualQueue(std::string label, ManualClock& clock) : label_(std::move(label)), clock_(clock) {}

    /// Runs all that is ready now, including what those tasks add; answers how many ran.
    int runReady();
    /// Moves the clock forward and runs every task at its own moment on the way.
    void advance(Duration by);

    const std::string& label() const override { return label_; }
    void async(Task task) override;
    TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) override;
    bool cancel(TimerId timer) override;
    bool isCurrent() const override;
    void sync(const Task& task) override;

private:
    const std::string label_;
    ManualClock& clock_;
    mutable std::mutex mutex_;
    TaskSchedule schedule_;
    std::thread::id runner_;
};
} // namespace snipwren
