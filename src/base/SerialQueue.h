#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "base/Clock.h"

namespace snipwren {
/// Runs tasks one at a time, in order. The main queue is one too. Thread safe.
/// A task must not throw: one that does ends the program, because half-done state is worse.
class SerialQueue {
public:
    using Task = std::function<void()>;
    /// 0 is never a timer.
    using TimerId = std::uint64_t;

    virtual ~SerialQueue() = default;
    virtual const std::string& label() const = 0;
    virtual void async(Task task) = 0;
    /// Runs the task on the queue after `delay` of monotonic time.
    virtual TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) = 0;
    /// False when the task has run, runs now or never existed.
    virtual bool cancel(TimerId timer) = 0;
    /// Ends the queue: what is ready still runs, what is delayed does not. Waits no longer than `limit`; false when a task
    /// still runs then. The queue and all that its tasks use must outlive that task: whoever gets false ends the process
    /// without destroying them. Queues without a thread of their own have nothing to end.
    virtual bool finish(std::chrono::nanoseconds) { return true; }
    /// True on the thread that is running one of this queue's tasks.
    virtual bool isCurrent() const = 0;

    /// Runs the task on the queue and waits for it. Calling it from the queue itself would wait for ever and asserts.
    virtual void sync(const Task& task);

    /// Waits for the task's value.
    template <class F>
    auto call(F&& function) -> decltype(function()) {
        if constexpr (std::is_void_v<decltype(function())>) {
            sync([&] { function(); });
        } else {
            std::optional<decltype(function())> value;
            sync([&] { value.emplace(function()); });
            return std::move(*value);
        }
    }
    /// Now when already on the queue, otherwise later.
    void runOrAsync(Task task) { isCurrent() ? task() : async(std::move(task)); }
};
} // namespace snipwren
