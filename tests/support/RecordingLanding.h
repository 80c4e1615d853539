#pragma once

#include <mutex>
#include <vector>

#include "records/CaptureLanding.h"

namespace snipwren {
/// Keeps every receipt. Thread safe.
class RecordingLanding final : public CaptureLanding {
public:
    void announce(const Landing& landing) override {
        const std::lock_guard lock(mutex_);
        landings_.push_back(landing);
    }
    std::vector<Landing> landings() const {
        const std::lock_guard lock(mutex_);
        return landings_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Landing> landings_;
};
} // namespace snipwren
