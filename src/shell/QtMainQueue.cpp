#include "shell/QtMainQueue.h"

#include <algorithm>

#include <QThread>
#include <QTimer>

namespace snipwren {
void QtMainQueue::async(Task task) { QMetaObject::invokeMethod(&context_, std::move(task), Qt::QueuedConnection); }

SerialQueue::TimerId QtMainQueue::asyncAfter(std::chrono::nanoseconds delay, Task task) {
    TimerId id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = ++lastId_;
        delayed_.emplace(id, std::move(task));
    }
    const auto moment = std::chrono::steady_clock::now() + delay;
    async([this, id, moment] { arm(id, moment); });
    return id;
}

void QtMainQueue::arm(TimerId timer, std::chrono::steady_clock::time_point moment) {
    // A toolkit's timer holds no more than some weeks, and may be early by a part of a millisecond.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - std::chrono::steady_clock::now());
    if (left.count() > 0) {
        const auto wait = std::min<std::chrono::milliseconds>(left, std::chrono::hours(24));
        QTimer::singleShot(wait, Qt::PreciseTimer, &context_, [this, timer, moment] { arm(timer, moment); });
        return;
    }
    Task task;
    {
        const std::lock_guard lock(mutex_);
        const auto found = delayed_.find(timer);
        if (found == delayed_.end()) return;
        task = std::move(found->second);
        delayed_.erase(found);
    }
    task();
}

bool QtMainQueue::cancel(TimerId timer) {
    const std::lock_guard lock(mutex_);
    return delayed_.erase(timer) > 0;
}

bool QtMainQueue::isCurrent() const { return QThread::currentThread() == context_.thread(); }
} // namespace snipwren
