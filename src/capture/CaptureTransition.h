#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/KeyEvent.h"

namespace snipwren {
/// Where capture mode stands.
enum class CapturePhase : std::uint8_t {
    /// Keys go to the host, and triggers are looked for.
    idle,
    /// A trigger was recognised: it is being removed and the place of the overlay found.
    stripping,
    /// The overlay is on the screen and waits for the keyboard.
    opening,
    /// The overlay has the keyboard.
    capturing,
    /// Return was pressed, and the text is on its way to the disk.
    confirming,
    /// The tap takes over every key, before the overlay lets go of them.
    closing,
    /// The overlay lets go of the keyboard.
    dismissing,
    /// What was typed meanwhile is being given to the host.
    returning,
};

/// What happens to capture mode.
enum class CaptureEvent : std::uint8_t {
    /// A trigger was typed, or capture mode asked for from a menu.
    triggered,
    /// The target cannot take a capture now.
    notReady,
    /// The trigger is gone and the place known.
    placed,
    keyboardTaken,
    committed,
    /// The text is on the disk.
    confirmed,
    /// The disk did not take it.
    refused,
    cancelled,
    /// Not a key passes the tap any more.
    keysHeld,
    keyboardReturned,
    /// Nothing is left to give to the host.
    keysGiven,
    /// What the phase waits for does not come.
    timedOut,
};

/// What is to be done when an event has led to another phase.
enum class CaptureAction : std::uint8_t {
    beginWalk,
    showOverlay,
    beginCapture,
    writeDown,
    askAgain,
    close,
    dismiss,
    giveKeysBack,
    rest
};

/// The state machine of capture mode: one table says what each event does in each phase; events that a phase does not
/// know change nothing. Keys pressed on the way in and out are kept here. The phase is read on the tap thread for every
/// key; changing it and keeping a key exclude each other (`stateLock`), so that no key is lost between the two and none
/// comes twice.
class CaptureTransition {
public:
    /// A person cannot type more in the seconds that a walk may take; beyond it keys are dropped, not memory.
    static constexpr std::size_t maxKeptKeys = 4096;

    CapturePhase phase() const { return phase_; }
    /// Keys are kept.
    bool isActive() const;
    /// The overlay is the place to type in.
    bool isCaptureModeActive() const;
    /// Numbers the walks into capture mode, so that a late answer to an earlier one is known as such.
    std::uint64_t generation() const { return captureTransitionGeneration_; }

    /// What to do now; none when the phase does not know the event.
    std::optional<CaptureAction> handle(CaptureEvent event);
    /// The same, for an answer to the walk of that number; a late one does nothing.
    std::optional<CaptureAction> handle(CaptureEvent event, std::uint64_t generation);
    /// The same, unless a key was kept since they were taken.
    std::optional<CaptureAction> handleIfNothingKept(CaptureEvent event);

    /// True when the key was kept; false when keys go their way again.
    bool keep(const KeyEvent& event);
    std::vector<KeptKey> takeKeys();

    /// The table: the phase that follows, none when nothing does.
    static std::optional<CapturePhase> next(CapturePhase phase, CaptureEvent event);

private:
    std::optional<CaptureAction> handleLocked(CaptureEvent event);

    std::atomic<CapturePhase> phase_ = CapturePhase::idle;
    std::atomic<std::uint64_t> captureTransitionGeneration_ = 0;
    std::mutex stateLock_;
    std::vector<KeptKey> keptKeys_;
};
} // namespace snipwren
