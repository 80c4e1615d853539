#include "capture/CaptureTransition.h"

#include <utility>

namespace snipwren {
namespace {
using Phase = CapturePhase;
using Event = CaptureEvent;
using Action = CaptureAction;

struct Row {
    Phase in;
    Event on;
    Phase next;
    Action action;
};

// clang-format off
constexpr Row table[] = {
    {Phase::idle,       Event::triggered,        Phase::stripping,  Action::beginWalk},

    {Phase::stripping,  Event::placed,           Phase::opening,    Action::showOverlay},
    {Phase::stripping,  Event::notReady,         Phase::returning,  Action::giveKeysBack},
    {Phase::stripping,  Event::timedOut,         Phase::returning,  Action::giveKeysBack},

    {Phase::opening,    Event::keyboardTaken,    Phase::capturing,  Action::beginCapture},
    {Phase::opening,    Event::timedOut,         Phase::capturing,  Action::beginCapture},
    {Phase::opening,    Event::committed,        Phase::confirming, Action::writeDown},
    {Phase::opening,    Event::cancelled,        Phase::closing,    Action::close},

    {Phase::capturing,  Event::committed,        Phase::confirming, Action::writeDown},
    {Phase::capturing,  Event::cancelled,        Phase::closing,    Action::close},

    {Phase::confirming, Event::confirmed,        Phase::closing,    Action::close},
    {Phase::confirming, Event::refused,          Phase::capturing,  Action::askAgain},
    // Whoever does not want to wait for the disk leaves; the text goes its way without the overlay.
    {Phase::confirming, Event::cancelled,        Phase::closing,    Action::close},

    {Phase::closing,    Event::keysHeld,         Phase::dismissing, Action::dismiss},
    {Phase::closing,    Event::timedOut,         Phase::dismissing, Action::dismiss},

    {Phase::dismissing, Event::keyboardReturned, Phase::returning,  Action::giveKeysBack},
    {Phase::dismissing, Event::timedOut,         Phase::returning,  Action::giveKeysBack},

    {Phase::returning,  Event::keysGiven,        Phase::idle,       Action::rest},
    // Among the keys that were kept is another trigger.
    {Phase::returning,  Event::triggered,        Phase::stripping,  Action::beginWalk},
};
// clang-format on

const Row* rowOf(Phase phase, Event event) {
    for (const Row& row : table)
        if (row.in == phase && row.on == event) return &row;
    return nullptr;
}
} // namespace

std::optional<CapturePhase> CaptureTransition::next(CapturePhase phase, CaptureEvent event) {
    const Row* const row = rowOf(phase, event);
    return row ? std::optional(row->next) : std::nullopt;
}

bool CaptureTransition::isActive() const {
    const Phase phase = phase_;
    return phase != Phase::idle && phase != Phase::capturing;
}

bool CaptureTransition::isCaptureModeActive() const {
    const Phase phase = phase_;
    return phase == Phase::opening || phase == Phase::capturing || phase == Phase::confirming;
}

std::optional<CaptureAction> CaptureTransition::handleLocked(CaptureEvent event) {
    const Row* const row = rowOf(phase_, event);
    if (!row) return std::nullopt;
    if (row->in == Phase::idle) keptKeys_.clear();
    if (row->next == Phase::stripping) ++captureTransitionGeneration_;
    phase_ = row->next;
    return row->action;
}

std::optional<CaptureAction> CaptureTransition::handle(CaptureEvent event) {
    const std::lock_guard lock(stateLock_);
    return handleLocked(event);
}

std::optional<CaptureAction> CaptureTransition::handle(CaptureEvent event, std::uint64_t generation) {
    const std::lock_guard lock(stateLock_);
    if (generation != captureTransitionGeneration_) return std::nullopt;
    return handleLocked(event);
}

std::optional<CaptureAction> CaptureTransition::handleIfNothingKept(CaptureEvent event) {
    const std::lock_guard lock(stateLock_);
    if (!keptKeys_.empty()) return std::nullopt;
    return handleLocked(event);
}

bool CaptureTransition::keep(const KeyEvent& event) {
    const std::lock_guard lock(stateLock_);
    if (!isActive()) return false;
    if (keptKeys_.size() < maxKeptKeys)
        keptKeys_.push_back({event.keyCode, std::string(event.characters), event.modifiers, event.isComposing});
    return true;
}

std::vector<KeptKey> CaptureTransition::takeKeys() {
    const std::lock_guard lock(stateLock_);
    return std::exchange(keptKeys_, {});
}
} // namespace snipwren
