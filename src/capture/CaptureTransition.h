#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/KeyEvent.h"

namespace snipwren {
/// A key pressed while the overlay was opening.
struct KeptKey {
    int keyCode = keycode::unknown;
    std::string characters;
    Modifiers modifiers;

    /// Valid as long as this is.
    KeyEvent event() const {
        KeyEvent made;
        made.keyCode = keyCode;
        made.characters = characters;
        made.modifiers = modifiers;
        return made;
    }
};

/// The way into capture mode: whether it is being walked, which walk is the current one, and the keys pressed meanwhile.
/// The flags are read on the tap thread for every key; ending a walk and keeping a key exclude each other (`stateLock`),
/// so that no key is lost between the two and none comes twice.
class CaptureTransition {
public:
    /// A person cannot type more in the seconds that a walk may take; beyond it keys are dropped, not memory.
    static constexpr std::size_t maxKeptKeys = 4096;

    bool isActive() const { return captureTransitionAtomic_; }
    bool isCaptureModeActive() const { return captureModeActiveAtomic_; }
    void setCaptureModeActive(bool active) { captureModeActiveAtomic_ = active; }

    /// Numbers a new walk. None while one is under way.
    std::optional<std::uint64_t> begin();
    std::uint64_t generation() const { return captureTransitionGeneration_; }
    /// True while this walk is the current one and not completed.
    bool isUnderWay(std::uint64_t generation) const;
    /// True when the key was kept; false when no walk is under way any more.
    bool keep(const KeyEvent& event);
    /// The keys kept so far.
    std::vector<KeptKey> takeKeys(std::uint64_t generation);
    /// Ends the walk unless a key was kept since they were taken; true when it is over.
    bool completeIfNothingKept(std::uint64_t generation);
    /// Ends the current walk and numbers the next at once; the keys come before those kept since.
    std::uint64_t restart(std::vector<KeptKey> keys);

private:
    std::atomic<bool> captureModeActiveAtomic_ = false;
    std::atomic<bool> captureTransitionAtomic_ = false;
    std::atomic<std::uint64_t> captureTransitionGeneration_ = 0;
    std::atomic<std::uint64_t> captureTransitionCompletedGeneration_ = 0;
    std::mutex stateLock_;
    std::vector<KeptKey> keptKeys_;
};
} // namespace snipwren
