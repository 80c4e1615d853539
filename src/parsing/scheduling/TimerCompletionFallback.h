#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "parsing/scheduling/PendingScheduledCapture.h"
#include "platform/HeadsUpPanel.h"

namespace snipwren {
/// Shows our own heads-up panel when a timer or alarm is due, because a system that accepted a notification need not
/// show it. Callable from any thread, its entries guarded by one lock; the panel is used on the main queue only.
class TimerCompletionFallback {
public:
    struct Dependencies {
        SerialQueue& mainQueue;
        Clock& clock;
        HeadsUpPanel& panel;
        NotificationCenter& notifications;
    };
    explicit TimerCompletionFallback(const Dependencies& dependencies);
    ~TimerCompletionFallback();

    /// Replaces what is held for the identifier. A moment that has passed shows the panel at once.
    void schedule(const std::string& identifier, TimePoint fireDate, const std::string& title, const std::string& body);
    void cancel(const std::string& identifier);

    /// The system has delivered this one: show the panel now if it has not been shown. Delays on the queue do not count
    /// sleep, so after a suspend the delivery comes first; it also comes for requests of an earlier run. Main queue.
    void systemDelivered(const std::string& identifier, const std::string& title, const std::string& body);
    /// Takes over what is pending in the system but was scheduled by another program or an earlier run, and drops what
    /// was cancelled there. Main queue.
    void adopt(const std::vector<PendingScheduledCapture>& pending);

private:
    struct Entry {
        SerialQueue::TimerId timer = 0;
        std::uint64_t generation = 0;
        TimePoint fireDate;
        std::string title;
        std::string body;
    };
    struct State {
        std::mutex mutex;
        std::map<std::string, Entry> entries;
        /// The latest shown identifiers, so that the queue and the system together show each once.
        std::deque<std::string> shown;
        std::uint64_t lastGeneration = 0;
    };
    void fire(const std::string& identifier, std::uint64_t generation);
    void show(const std::string& title, const std::string& body);

    const Dependencies dependencies_;
    /// Held weakly by the waiting tasks, which may outlive this object.
    std::shared_ptr<State> state_;
};
} // namespace snipwren
