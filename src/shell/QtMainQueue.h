#pragma once

#include <mutex>
#include <unordered_map>

#include <QObject>

#include "base/SerialQueue.h"

namespace snipwren {
/// The main queue of a program with windows: tasks run in the toolkit's event loop, on the thread that made this object.
class QtMainQueue final : public SerialQueue {
public:
    QtMainQueue() = default;

    const std::string& label() const override { return label_; }
    void async(Task task) override;
    TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) override;
    bool cancel(TimerId timer) override;
    bool isCurrent() const override;

private:
    void arm(TimerId timer, std::chrono::steady_clock::time_point moment);

    const std::string label_ = "com.snipwren.main";
    /// Lives on the main thread; what is posted to it dies with it.
    QObject context_;
    std::mutex mutex_;
    std::unordered_map<TimerId, Task> delayed_;
    TimerId lastId_ = 0;
};
} // namespace snipwren
