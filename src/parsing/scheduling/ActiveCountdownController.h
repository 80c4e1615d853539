#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
/// The remaining time of the next timer or alarm, for the status item. Main queue; the pending captures are read on the
/// work queue, because the system may take its time to answer.
class ActiveCountdownController {
public:
    struct Countdown {
        /// "1:02:05", "1:05": what stands beside the icon.
        std::string text;
        /// "1:05 remaining": for the tooltip, the menu and screen readers.
        std::string description;
        /// "2h", "25m", "45": for a place as small as an icon.
        std::string badge;
        PendingScheduledCapture capture;
    };
    struct Dependencies {
        NotificationScheduler& scheduler;
        TimerCompletionFallback& fallback;
        SerialQueue& mainQueue;
        SerialQueue& workQueue;
        Clock& clock;
        NotificationCenter& notifications;
    };
    /// Called with every new text, and with none when there is nothing to count down.
    using Display = std::function<void(const std::optional<Countdown>&)>;

    explicit ActiveCountdownController(const Dependencies& dependencies);
    ~ActiveCountdownController();
    ActiveCountdownController(const ActiveCountdownController&) = delete;

    void start(Display display);
    void stop();
    /// What is shown now.
    const std::optional<Countdown>& current() const { return current_; }
    /// All that was pending when last read, by fire date.
    const std::vector<PendingScheduledCapture>& pending() const { return pending_; }

    /// Whole seconds, rounded up so that a timer of 25 minutes begins with 25:00.
    static std::string remainingText(Duration remaining);
    static std::string badgeText(Duration remaining);

private:
    void reload();
    void render();
    void cancelTick();

    const Dependencies dependencies_;
    Display display_;
    NotificationCenter::Subscription subscription_;
    std::vector<PendingScheduledCapture> pending_;
    std::optional<Countdown> current_;
    SerialQueue::TimerId tick_ = 0;
    bool isLoading_ = false;
    bool isStale_ = false;
    /// Held weakly by tasks on the queues, which may outlive this object.
    std::shared_ptr<int> alive_;
};
} // namespace snipwren
