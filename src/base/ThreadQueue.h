#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/TaskSchedule.h"

namespace snipwren {
/// A serial queue with a thread of its own, or, as the main queue of a program without a toolkit, the thread that calls
/// run(). Destruction runs what is ready, drops what is delayed and joins.
class ThreadQueue final : public SerialQueue {
public:
    enum class Runs { onOwnThread, inRunCall };
    explicit ThreadQueue(std::string label, Runs runs = Runs::onOwnThread);
    ~ThreadQueue() override;

    /// Starts the thread; tasks wait until then. Calling it again does nothing.
    void start();
    /// For Runs::inRunCall: runs tasks on the calling thread until quit().
    void run();
    /// Runs tasks on the calling thread until `done` answers true (asked between tasks) or the time is over; answers
    /// the last `done`.
    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds timeout);
    /// Runs what is ready on the calling thread and returns.
    void runReady() {
        runUntil([] { return false; }, std::chrono::nanoseconds(0));
    }
    void quit();

    const std::string& label() const override { return label_; }
    void async(Task task) override;
    TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) override;
    bool cancel(TimerId timer) override;
    bool finish(std::chrono::nanoseconds limit) override;
    bool isCurrent() const override;

private:
    /// Runs tasks until the deadline passes, quit() or `done`.
    void loop(const std::function<bool()>* done, std::optional<SteadyPoint> deadline);

    const std::string label_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    TaskSchedule schedule_;
    std::thread::id runner_;
    bool quitting_ = false;
    bool isRunning_ = false;
    std::thread thread_;
};
} // namespace snipwren
