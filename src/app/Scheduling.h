#pragma once

#include "app/Environment.h"
#include "base/ThreadQueue.h"
#include "parsing/scheduling/ActiveCountdownController.h"
#include "parsing/scheduling/NotificationDelegate.h"
#include "parsing/scheduling/NotificationScheduler.h"
#include "parsing/scheduling/TimerCompletionFallback.h"

namespace snipwren {
/// Timers and alarms with all that belongs to them, over one notification center.
class Scheduling {
public:
    Scheduling(Environment& environment, UserNotificationCenter& center, HeadsUpPanel& panel);
    ~Scheduling();

    /// For a program that stays: hears deliveries, buttons and what other programs schedule. `onAction` calls on the
    /// delegate come before.
    void start();
    NotificationScheduler& scheduler() { return scheduler_; }
    NotificationDelegate& delegate() { return delegate_; }
    /// Counts down the next one on the display, until stopCountdown().
    void startCountdown(ActiveCountdownController::Display display);
    void stopCountdown() { countdown_.stop(); }
    const ActiveCountdownController& countdown() const { return countdown_; }
    /// For the main queue, which must not wait for the system; `failed` gets a sentence, on another thread. After
    /// startCountdown().
    void cancelInBackground(const std::string& identifier, std::function<void(const std::string&)> failed);

private:
    ThreadQueue workQueue_;
    bool workStarted_ = false;
    TimerCompletionFallback fallback_;
    NotificationScheduler scheduler_;
    NotificationDelegate delegate_;
    ActiveCountdownController countdown_;
};
} // namespace snipwren
