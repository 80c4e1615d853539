#include "capture/CaptureTransition.h"

#include <iterator>
#include <utility>

namespace snipwren {
std::optional<std::uint64_t> CaptureTransition::begin() {
    const std::lock_guard lock(stateLock_);
    if (captureTransitionAtomic_) return std::nullopt;
    keptKeys_.clear();
    captureTransitionAtomic_ = true;
    return ++captureTransitionGeneration_;
}

bool CaptureTransition::isUnderWay(std::uint64_t generation) const {
    return captureTransitionAtomic_ && captureTransitionGeneration_ == generation
           && captureTransitionCompletedGeneration_ < generation;
}

bool CaptureTransition::keep(const KeyEvent& event) {
    const std::lock_guard lock(stateLock_);
    if (!captureTransitionAtomic_) return false;
    if (keptKeys_.size() < maxKeptKeys)
        keptKeys_.push_back({event.keyCode, std::string(event.characters), event.modifiers});
    return true;
}

std::vector<KeptKey> CaptureTransition::takeKeys(std::uint64_t generation) {
    const std::lock_guard lock(stateLock_);
    if (captureTransitionGeneration_ != generation || !captureTransitionAtomic_) return {};
    return std::exchange(keptKeys_, {});
}

bool CaptureTransition::completeIfNothingKept(std::uint64_t generation) {
    const std::lock_guard lock(stateLock_);
    if (captureTransitionGeneration_ != generation || !captureTransitionAtomic_) return true;
    if (!keptKeys_.empty()) return false;
    captureTransitionCompletedGeneration_ = generation;
    captureTransitionAtomic_ = false;
    return true;
}

std::uint64_t CaptureTransition::restart(std::vector<KeptKey> keys) {
    const std::lock_guard lock(stateLock_);
    keptKeys_.insert(keptKeys_.begin(), std::make_move_iterator(keys.begin()), std::make_move_iterator(keys.end()));
    captureTransitionAtomic_ = true;
    captureTransitionCompletedGeneration_ = captureTransitionGeneration_.load();
    return ++captureTransitionGeneration_;
}
} // namespace snipwren
