#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/SerialQueue.h"

namespace snipwren {
/// Runs independent tasks, several at once. Thread safe. A task must not throw.
class TaskRunner {
public:
    virtual ~TaskRunner() = default;
    virtual void start(std::function<void()> task) = 0;
};

/// A small pool of threads, started with the first task.
class TaskPool final : public TaskRunner {
public:
    TaskPool(std::string name, std::size_t threads) : name_(std::move(name)), limit_(threads) {}
    ~TaskPool() override { finish(); }
    void start(std::function<void()> task) override;
    /// Runs what was started and joins; tasks started later never run.
    void finish();

private:
    void loop();

    const std::string name_;
    const std::size_t limit_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    std::size_t idle_ = 0;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

/// Runs the tasks one by one on a queue: for tests that drive everything by hand.
class QueueRunner final : public TaskRunner {
public:
    explicit QueueRunner(SerialQueue& queue) : queue_(queue) {}
    void start(std::function<void()> task) override { queue_.async(std::move(task)); }

private:
    SerialQueue& queue_;
};
} // namespace snipwren
