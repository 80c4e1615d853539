#include "base/ManualQueue.h"

namespace snipwren {
int ManualQueue::runReady() {
    int count = 0;
    std::unique_lock lock(mutex_);
    const std::thread::id previous = runner_;
    runner_ = std::this_thread::get_id();
    while (auto task = schedule_.take(clock_.steadyNow())) {
        lock.unlock();
        (*task)();
        task.reset();
        ++count;
        lock.lock();
    }
    runner_ = previous;
    return count;
}

void ManualQueue::advance(Duration by) {
    const SteadyPoint end = clock_.steadyNow() + by;
    runReady();
    while (true) {
        std::optional<SteadyPoint> next;
        {
            const std::lock_guard lock(mutex_);
            next = schedule_.nextMoment();
        }
        if (!next || *next > end) break;
        // Rounded up: a task's moment may lie between two microseconds of the manual clock.
        clock_.advance(std::chrono::ceil<Duration>(*next - clock_.steadyNow()));
        runReady();
    }
    if (clock_.steadyNow() < end) clock_.advance(std::chrono::ceil<Duration>(end - clock_.steadyNow()));
    runReady();
}

void ManualQueue::async(Task task) {
    const std::lock_guard lock(mutex_);
    schedule_.add(std::move(task));
}

SerialQueue::TimerId ManualQueue::asyncAfter(std::chrono::nanoseconds delay, Task task) {
    const std::lock_guard lock(mutex_);
    return schedule_.addAt(clock_.steadyNow() + delay, std::move(task));
}

bool ManualQueue::cancel(TimerId timer) {
    const std::lock_guard lock(mutex_);
    return schedule_.cancel(timer);
}

bool ManualQueue::isCurrent() const {
    const std::lock_guard lock(mutex_);
    return runner_ == std::this_thread::get_id();
}

void ManualQueue::sync(const Task& task) {
    async(task);
    runReady();
}
} // namespace snipwren
