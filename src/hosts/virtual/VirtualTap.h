#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

#include "hosts/virtual/VirtualDesktop.h"

namespace snipwren {
/// The virtual desktop's tap: one call at a time is handed to the thread that runs it, and waited for.
class VirtualDesktop::Tap final : public KeyboardTap {
public:
    Tap(VirtualDesktop& desktop, KeyboardTapListener& listener) : desktop_(desktop), listener_(listener) {}

    void run() override;
    void invalidate() override;
    void setEnabled(bool enabled) override;
    bool isEnabled() const override;
    bool isListening() const;
    bool isInvalidated() const;
    /// Runs the call on the tap's thread and waits; false when the tap does not listen.
    bool onTapThread(const std::function<void(KeyboardTapListener&)>& call);
    void disable();

private:
    VirtualDesktop& desktop_;
    KeyboardTapListener& listener_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    const std::function<void(KeyboardTapListener&)>* call_ = nullptr;
    bool running_ = false;
    bool enabled_ = false;
    bool invalidated_ = false;
};
} // namespace snipwren
