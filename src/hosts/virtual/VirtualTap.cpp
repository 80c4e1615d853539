#include "hosts/virtual/VirtualTap.h"

namespace snipwren {
void VirtualDesktop::Tap::run() {
    std::unique_lock lock(mutex_);
    running_ = true;
    desktop_.tapChanged_.notify_all();
    while (true) {
        changed_.wait(lock, [this] { return call_ || invalidated_; });
        if (!call_) break;
        const auto* call = call_;
        lock.unlock();
        (*call)(listener_);
        lock.lock();
        call_ = nullptr;
        changed_.notify_all();
    }
    running_ = false;
    changed_.notify_all();
}

void VirtualDesktop::Tap::invalidate() {
    const std::lock_guard lock(mutex_);
    invalidated_ = true;
    enabled_ = false;
    changed_.notify_all();
}

void VirtualDesktop::Tap::setEnabled(bool enabled) {
    {
        const std::lock_guard lock(mutex_);
        if (enabled && desktop_.refusesEnabling_) return;
        enabled_ = enabled && !invalidated_;
    }
    desktop_.tapChanged_.notify_all();
}

bool VirtualDesktop::Tap::isEnabled() const {
    const std::lock_guard lock(mutex_);
    return enabled_;
}

bool VirtualDesktop::Tap::isListening() const {
    const std::lock_guard lock(mutex_);
    return enabled_ && running_;
}

bool VirtualDesktop::Tap::isInvalidated() const {
    const std::lock_guard lock(mutex_);
    return invalidated_;
}

void VirtualDesktop::Tap::disable() {
    const std::lock_guard lock(mutex_);
    enabled_ = false;
}

bool VirtualDesktop::Tap::onTapThread(const std::function<void(KeyboardTapListener&)>& call) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !call_ || invalidated_; });
    if (invalidated_ || !running_) return false;
    call_ = &call;
    changed_.notify_all();
    changed_.wait(lock, [this, &call] { return call_ != &call; });
    return true;
}
} // namespace snipwren
