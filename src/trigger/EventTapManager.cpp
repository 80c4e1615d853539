#include "trigger/EventTapManager.h"

#include <cassert>

#include <pthread.h>

namespace snipwren {
namespace {
unsigned bits(const Modifiers& modifiers) {
    return (modifiers.control ? 1U : 0U) | (modifiers.option ? 2U : 0U) | (modifiers.shift ? 4U : 0U)
           | (modifiers.command ? 8U : 0U);
}
} // namespace

EventTapManager::EventTapManager(const Dependencies& dependencies)
    : to_(dependencies),
      shortcutModifiers_(bits({.control = true})) {}

EventTapManager::~EventTapManager() {
    stop();
    alive_.reset();
}

void EventTapManager::start() {
    if (!preferenceSubscription_) {
        preferenceSubscription_ = to_.notifications.observe("ShortcutPreferenceChanged",
                                                            [this](const UserInfo&) { loadShortcutPreferences(); });
        loadShortcutPreferences();
    }
    if (!to_.permissions.isAccessibilityTrusted()) {
        to_.log.line("Accessibility not trusted. Skipping event tap creation.");
        return;
    }
    {
        const std::lock_guard lock(tapLock_);
        const unsigned long generation = ++tapGeneration_;
        if (eventTap_) eventTap_->invalidate();
        eventTap_.reset();
        consecutiveTimeouts_ = 0;
        lastTapTimeoutAt_.reset();
        isTapPermanentlyDisabled_ = false;
        tapThreads_.emplace_back([this, generation] { runTapThread(generation); });
    }
    scheduleWatchdog();
}

void EventTapManager::stop() {
    std::vector<std::thread> ending;
    {
        const std::lock_guard lock(tapLock_);
        ++tapGeneration_; // A tap that is just being created finds itself outdated.
        if (eventTap_) {
            eventTap_->setEnabled(false);
            eventTap_->invalidate();
        }
        eventTap_.reset();
        ending.swap(tapThreads_);
    }
    to_.mainQueue.cancel(tapWatchdogTimer_);
    tapWatchdogTimer_ = 0;
    for (std::thread& thread : ending) {
        assert(thread.get_id() != std::this_thread::get_id() && "the tap cannot be stopped from its own callback");
        thread.join();
    }
}

void EventTapManager::runTapThread(unsigned long generation) {
    // com.snipwren.app.EventTapThread; the kernel keeps 15 bytes of it.
    pthread_setname_np(pthread_self(), "EventTapThread");
    auto tap = to_.taps.createTap(*this);
    if (!tap) {
        to_.log.line("Failed to create event tap.");
        to_.mainQueue.async([this, alive = std::weak_ptr(alive_)] {
            if (!alive.expired()) showPermissionAlert();
        });
        return;
    }
    {
        const std::lock_guard lock(tapLock_);
        if (tapGeneration_ != generation) {
            (*tap)->setEnabled(false);
            (*tap)->invalidate();
            return;
        }
        eventTap_ = *tap;
        eventTap_->setEnabled(true);
    }
    to_.log.line("Event tap successfully started on dedicated background thread.");
    (*tap)->run();
}

bool EventTapManager::isRunning() const {
    const std::lock_guard lock(tapLock_);
    return eventTap_ != nullptr;
}

bool EventTapManager::isTapEnabledNow() const {
    const std::lock_guard lock(tapLock_);
    return eventTap_ && eventTap_->isEnabled();
}

SteadyPoint EventTapManager::lastKeyPressTime() const {
    const std::lock_guard lock(tapLock_);
    return lastKeyPressTime_;
}

void EventTapManager::scheduleWatchdog() {
    to_.mainQueue.cancel(tapWatchdogTimer_);
    tapWatchdogTimer_ = to_.mainQueue.asyncAfter(watchdogPeriod, [this, alive = std::weak_ptr(alive_)] {
        if (alive.expired()) return;
        watchdogTick();
        scheduleWatchdog();
    });
}

void EventTapManager::watchdogTick() {
    {
        const std::lock_guard lock(tapLock_);
        if (isTapPermanentlyDisabled_ || !eventTap_ || eventTap_->isEnabled()) return;
        if (lastTapTimeoutAt_ && to_.clock.steadyNow() - *lastTapTimeoutAt_ <= watchdogCooldown) return;
    }
    enableUnlessDisabled();
}

void EventTapManager::enableUnlessDisabled() {
    {
        const std::lock_guard lock(tapLock_);
        if (isTapPermanentlyDisabled_ || !eventTap_ || eventTap_->isEnabled()) return;
        eventTap_->setEnabled(true);
    }
    to_.log.line("Event tap watchdog: Re-enabled tap after 2s cooldown.");
}

void EventTapManager::handleTimeout() {
    int count = 0;
    {
        const std::lock_guard lock(tapLock_);
        lastTapTimeoutAt_ = to_.clock.steadyNow();
        count = ++consecutiveTimeouts_;
    }
    to_.log.line("Event tap watchdog: Timeout occurred. Count: " + std::to_string(count));
    if (count < maxConsecutiveTimeouts) {
        to_.mainQueue.asyncAfter(reenableDelay, [this, alive = std::weak_ptr(alive_)] {
            if (!alive.expired()) enableUnlessDisabled();
        });
        return;
    }
    to_.log.line("Event tap watchdog: Disabling event tap permanently due to multiple timeouts to protect system input "
                 "stream.");
    isTapPermanentlyDisabled_ = true;
    to_.notifications.post(
        "PresentCaptureFailure",
        {{"command", "capture"},
         {"detail",
          "The keyboard listener paused after repeated timeouts. Restart Snipwren from the menu bar, then type "
          "// again."},
         {"saved", false},
         {"informational", true}});
}

void EventTapManager::handleUserInputDisable() {
    {
        const std::lock_guard lock(tapLock_);
        if (isTapPermanentlyDisabled_ || !eventTap_) return;
        eventTap_->setEnabled(true);
    }
    to_.mainQueue.asyncAfter(inputDisableCheckDelay, [this, alive = std::weak_ptr(alive_)] {
        if (alive.expired() || !isRunning() || isTapPermanentlyDisabled_ || isTapEnabledNow()) return;
        to_.log.line("Event tap disabled by user input and re-enable failed — prompting for permissions.");
        showPermissionAlert();
    });
}

void EventTapManager::showPermissionAlert() {
    Alert alert;
    alert.style = Alert::Style::critical;
    alert.title = "Input Monitoring or Accessibility Permission Required";
    alert.text =
        "Snipwren was unable to start its global keyboard listener.\n\nThis usually means that the application "
        "lacks 'Input Monitoring' or 'Accessibility' permissions in System Settings.\n\nPlease open 'System "
        "Settings > Privacy & Security' and ensure Snipwren is toggled ON under both 'Accessibility' and 'Input "
        "Monitoring', then restart the app.";
    alert.buttons = {"Open Settings", "Cancel"};
    to_.alerts.present(alert, [&workspace = to_.workspace](int button) {
        if (button == 0) workspace.openSettings("Privacy & Permissions", "");
    });
}

void EventTapManager::loadShortcutPreferences() {
    Modifiers chosen;
    chosen.control = to_.defaults.boolean("shortcutHasControl").value_or(true);
    chosen.option = to_.defaults.boolean("shortcutHasOption").value_or(false);
    chosen.shift = to_.defaults.boolean("shortcutHasShift").value_or(false);
    chosen.command = to_.defaults.boolean("shortcutHasCommand").value_or(false);
    if (chosen == Modifiers()) chosen.control = true;
    shortcutModifiers_ = bits(chosen);
    interestChanged();
}

void EventTapManager::interestChanged(const std::function<void()>& inForce) {
    std::shared_ptr<KeyboardTap> tap;
    {
        const std::lock_guard lock(tapLock_);
        tap = eventTap_;
    }
    // Not under the lock: a tap that asks on every key answers at once.
    if (tap) return tap->interestChanged(inForce);
    if (inForce) inForce();
}

void EventTapManager::clearContext(const std::optional<std::string>&, bool clearPassiveBuffer) {
    typingContext_.clear();
    if (clearPassiveBuffer) to_.router.resetPassiveTriggerState(true);
}
} // namespace snipwren
