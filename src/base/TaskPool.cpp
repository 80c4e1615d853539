#include "base/TaskPool.h"

#include <pthread.h>

namespace snipwren {
void TaskPool::finish() {
    std::vector<std::thread> ending;
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        ending.swap(threads_);
        wake_.notify_all();
    }
    for (std::thread& thread : ending) thread.join();
}

void TaskPool::start(std::function<void()> task) {
    const std::lock_guard lock(mutex_);
    if (ending_) return;
    tasks_.push_back(std::move(task));
    if (idle_ < tasks_.size() && threads_.size() < limit_) threads_.emplace_back([this] { loop(); });
    wake_.notify_one();
}

void TaskPool::loop() {
    pthread_setname_np(pthread_self(), name_.substr(0, 15).c_str());
    std::unique_lock lock(mutex_);
    while (true) {
        ++idle_;
        wake_.wait(lock, [this] { return ending_ || !tasks_.empty(); });
        --idle_;
        if (tasks_.empty()) return;
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}
} // namespace snipwren
