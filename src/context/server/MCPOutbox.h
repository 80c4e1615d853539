#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace snipwren {
/// What waits to be sent on one connection. Handlers and broadcasts put whole lines in from any thread; the connection
/// takes them out on its queue. Outlives the connection safely: once closed it wakes nobody.
class MCPOutbox {
public:
    /// `wake` tells the connection that there is something to take; it must not call back into the outbox.
    MCPOutbox(std::size_t maxUnsent, std::function<void()> wake) : maxUnsent_(maxUnsent), wake_(std::move(wake)) {}

    /// Whole lines with their line feeds. False when the connection is closed or its client reads nothing any more.
    bool put(std::string_view lines) {
        const std::lock_guard lock(mutex_);
        if (closed_) return false;
        const bool fits = waiting_.size() + inFlight_ + lines.size() <= maxUnsent_;
        if (fits) {
            waiting_ += lines;
        } else {
            overflowed_ = true;
        }
        if (!std::exchange(awake_, true)) wake_();
        return fits;
    }
    /// Moves what waits into `buffer`, unless a batch is still in flight or there is nothing.
    bool take(std::string& buffer) {
        const std::lock_guard lock(mutex_);
        awake_ = false;
        if (inFlight_ > 0 || waiting_.empty()) return false;
        buffer.clear();
        buffer.swap(waiting_);
        inFlight_ = buffer.size();
        return true;
    }
    void sent() {
        const std::lock_guard lock(mutex_);
        inFlight_ = 0;
    }
    void close() {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        waiting_ = {};
    }
    bool hasOverflowed() const {
        const std::lock_guard lock(mutex_);
        return overflowed_;
    }
    bool isEmpty() const {
        const std::lock_guard lock(mutex_);
        return inFlight_ == 0 && waiting_.empty();
    }

private:
    const std::size_t maxUnsent_;
    const std::function<void()> wake_;
    mutable std::mutex mutex_;
    std::string waiting_;
    std::size_t inFlight_ = 0;
    bool awake_ = false;
    bool overflowed_ = false;
    bool closed_ = false;
};
} // namespace snipwren
