#include "base/ThreadQueue.h"

#include <cassert>

#include <pthread.h>

namespace snipwren {
void SerialQueue::sync(const Task& task) {
    assert(!isCurrent() && "sync on one's own queue waits for ever");
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    async([&] {
        task();
        // Notified under the lock: the waiter's stack holds the condition and is gone once it wakes.
        const std::lock_guard lock(mutex);
        done = true;
        wake.notify_one();
    });
    std::unique_lock lock(mutex);
    wake.wait(lock, [&] { return done; });
}

ThreadQueue::ThreadQueue(std::string label, Runs runs) : label_(std::move(label)) {
    if (runs == Runs::inRunCall) runner_ = std::this_thread::get_id();
}

ThreadQueue::~ThreadQueue() {
    quit();
    if (thread_.joinable()) thread_.join();
}

void ThreadQueue::start() {
    const std::lock_guard lock(mutex_);
    if (thread_.joinable()) return;
    isRunning_ = true;
    thread_ = std::thread([this] {
        // The kernel keeps 15 bytes of a thread's name; the label's end is its telling part.
        const std::string name = label_.size() > 15 ? label_.substr(label_.size() - 15) : label_;
        pthread_setname_np(pthread_self(), name.c_str());
        loop(nullptr, std::nullopt);
        const std::lock_guard ended(mutex_);
        isRunning_ = false;
        wake_.notify_all();
    });
}

bool ThreadQueue::finish(std::chrono::nanoseconds limit) {
    quit();
    std::unique_lock lock(mutex_);
    return wake_.wait_for(lock, limit, [this] { return !isRunning_; });
}

void ThreadQueue::run() { loop(nullptr, std::nullopt); }

bool ThreadQueue::runUntil(const std::function<bool()>& done, std::chrono::nanoseconds timeout) {
    loop(&done, std::chrono::steady_clock::now() + timeout);
    return done();
}

void ThreadQueue::quit() {
    const std::lock_guard lock(mutex_);
    quitting_ = true;
    wake_.notify_all();
}

void ThreadQueue::async(Task task) {
    const std::lock_guard lock(mutex_);
    schedule_.add(std::move(task));
    wake_.notify_one();
}

SerialQueue::TimerId ThreadQueue::asyncAfter(std::chrono::nanoseconds delay, Task task) {
    const std::lock_guard lock(mutex_);
    const TimerId id = schedule_.addAt(std::chrono::steady_clock::now() + delay, std::move(task));
    wake_.notify_one();
    return id;
}

bool ThreadQueue::cancel(TimerId timer) {
    const std::lock_guard lock(mutex_);
    return schedule_.cancel(timer);
}

bool ThreadQueue::isCurrent() const {
    const std::lock_guard lock(mutex_);
    return runner_ == std::this_thread::get_id();
}

void ThreadQueue::loop(const std::function<bool()>* done, std::optional<SteadyPoint> deadline) {
    std::unique_lock lock(mutex_);
    runner_ = std::this_thread::get_id();
    while (true) {
        const SteadyPoint now = std::chrono::steady_clock::now();
        if (auto task = schedule_.take(now)) {
            lock.unlock();
            (*task)();
            task.reset(); // What the task holds is released before the queue is locked again.
            const bool finished = done && (*done)();
            lock.lock();
            if (finished) return;
            continue;
        }
        if (quitting_ || (deadline && now >= *deadline)) return;
        if (done) {
            lock.unlock();
            const bool finished = (*done)();
            lock.lock();
            if (finished) return;
            if (schedule_.hasReady()) continue;
        }
        std::optional<SteadyPoint> wakeAt = schedule_.nextMoment();
        if (deadline && (!wakeAt || *deadline < *wakeAt)) wakeAt = deadline;
        if (wakeAt) {
            wake_.wait_until(lock, *wakeAt);
        } else {
            wake_.wait(lock);
        }
    }
}
} // namespace snipwren
