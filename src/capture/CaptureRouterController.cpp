#include "capture/CaptureRouterController.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
CaptureRouterController::CaptureRouterController(const Dependencies& dependencies)
    : to_(dependencies),
      typedText_(to_.clock, to_.targets.commandWords()),
      walker_({to_.workspace, to_.fields, to_.keyboard, to_.screens, to_.journal, to_.notifications, to_.clock, to_.log,
               to_.pause}),
      hostKeys_(to_.keyboard, to_.workspace, typedText_, to_.targets, to_.log),
      draft_(to_.journal, to_.journalQueue) {}

CaptureRouterController::~CaptureRouterController() {
    activePickerOptionsLoadTask_.request_stop();
    walks_.request_stop();
    alive_.reset();
}

SerialQueue::Task CaptureRouterController::whileAlive(std::function<void()> task) const {
    return [alive = std::weak_ptr(alive_), task = std::move(task)] {
        if (!alive.expired()) task();
    };
}

void CaptureRouterController::later(std::chrono::milliseconds delay, std::function<void()> task) {
    to_.mainQueue.asyncAfter(delay, whileAlive(std::move(task)));
}

void CaptureRouterController::on(CaptureEvent event) {
    if (const auto action = transition_.handle(event)) perform(*action);
}

void CaptureRouterController::on(CaptureEvent event, std::uint64_t generation) {
    if (const auto action = transition_.handle(event, generation)) perform(*action);
}

void CaptureRouterController::perform(CaptureAction action) {
    switch (action) {                     // No default: -Wswitch names a forgotten case.
    case CaptureAction::beginWalk: break; // Whoever found the trigger begins it, with what was found.
    case CaptureAction::showOverlay: to_.overlay.present(anchor_); break;
    case CaptureAction::beginCapture: beginCapture(); break;
    case CaptureAction::writeDown: writeDown(); break;
    case CaptureAction::askAgain:
        input_.setConfirming(false);
        publish();
        break;
    case CaptureAction::close: close(); break;
    case CaptureAction::dismiss: dismiss(); break;
    case CaptureAction::giveKeysBack: giveKeysBack(); break;
    case CaptureAction::rest:
        if (to_.keyInterestChanged) to_.keyInterestChanged({});
        break;
    }
}

// Finding a trigger.

bool CaptureRouterController::handleKeyEvent(const KeyEvent& event) {
    const auto match = typedText_.apply(event);
    if (!match) return false;
    // The application has acted on the Return: a message may be sent, a form gone. There is nothing left to take back.
    if (event.reachedHost && event.keyCode == keycode::returnKey) return false;
    // The walk begins here, on the tap thread, so that not even the next key slips into the host.
    if (!transition_.handle(CaptureEvent::triggered)) return false;
    CaptureWalk walk;
    walk.target = &to_.targets[match->target];
    walk.trigger = TypedTrigger{match->triggerBody, codePointCount(match->triggerBody) + (event.reachedHost ? 1 : 0),
                                match->isCertain};
    beginWalk(std::move(walk));
    return true;
}

void CaptureRouterController::resetPassiveTriggerState(bool clearBuffer) {
    if (clearBuffer) typedText_.erase();
}

void CaptureRouterController::notePointerPress() { typedText_.doubt(); }

void CaptureRouterController::suspendPassiveBufferForAppSwitch(const std::string& previousBundleId,
                                                               const std::optional<FieldDescription>& previousElement) {
    if (previousElement) {
        typedText_.suspend(FocusFingerprint::of(previousBundleId, *previousElement));
    } else if (const auto last = typedText_.lastTypingFingerprint()) {
        typedText_.suspend(*last);
    }
}

void CaptureRouterController::restorePassiveBufferIfMatching(const std::string& bundleId,
                                                             const FieldDescription& element) {
    typedText_.restoreIfMatching(FocusFingerprint::of(bundleId, element));
}

void CaptureRouterController::noteTypingFocus(const std::string& bundleId, const FieldDescription& element) {
    typedText_.noteTypingFocus(FocusFingerprint::of(bundleId, element));
}

void CaptureRouterController::focusChanged(const std::string& bundleId, const FieldDescription& element) {
    const CapturePhase phase = transition_.phase();
    // The overlay's own coming and going leaves the host without a field for a while. Another field of a host is another
    // place all the same: what is typed behind the capture belongs to that one.
    if (phase != CapturePhase::idle && phase != CapturePhase::stripping && element.role.empty()) return;
    const FocusFingerprint field = FocusFingerprint::of(bundleId, element);
    const auto last = typedText_.lastTypingFingerprint();
    const auto front = to_.workspace.frontmostApplication();
    const bool isToldLate =
        phase == CapturePhase::stripping && last && last->bundleId != bundleId && front && front->bundleId == bundleId;
    // A program may tell only now of the focus that it had when the trigger was typed: the place is the same. Had the
    // keyboard gone to another window meanwhile, that window would tell.
    isToldLate ? typedText_.noteTypingFocus(field) : typedText_.focusChanged(field);
}

// The way in.

void CaptureRouterController::enterCaptureModeUI(CaptureTarget& target, const std::string& text) {
    to_.mainQueue.runOrAsync(whileAlive([this, &target, text] {
        if (!transition_.handle(CaptureEvent::triggered)) return;
        CaptureWalk walk;
        walk.target = &target;
        walk.text = text;
        beginWalk(std::move(walk));
    }));
}

void CaptureRouterController::beginWalk(CaptureWalk walk) {
    walk.origin = to_.workspace.frontmostApplication();
    walk.place = typedText_.placeNumber();
    walk.generation = transition_.generation();
    if (walk.trigger) {
        resetPassiveTriggerState(true);
        to_.notifications.post("HideSuggestionsOverlay");
    }
    to_.mainQueue.async(whileAlive([this, walk = std::move(walk)] {
        later(failsafeInterval, [this, generation = walk.generation] { failsafeCaptureTransition(generation, 1); });
        current_ = walk;
        to_.captureTransitionQueue.async([this, walk] { this->walk(walk); });
        if (!walk.trigger && to_.keyInterestChanged) to_.keyInterestChanged({});
    }));
}

bool CaptureRouterController::isStillThere(const CaptureWalk& walk) const {
    // A walk that was given up has nothing to remove any more: the user types on, and Backspaces would eat that.
    return !walks_.stop_requested() && transition_.phase() == CapturePhase::stripping
           && transition_.generation() == walk.generation && typedText_.placeNumber() == walk.place
           && walker_.isOriginInFront(walk);
}

/// On the transition queue.
void CaptureRouterController::walk(const CaptureWalk& walk) {
    if (walks_.stop_requested()) return;
    const auto opening = walker_.walk(walk, [&] { return isStillThere(walk); });
    if (walks_.stop_requested()) return;
    to_.mainQueue.async(whileAlive([this, walk, opening] {
        // The fail-safe was faster, or another capture has begun since.
        if (transition_.phase() != CapturePhase::stripping || walk.generation != transition_.generation()) return;
        if (opening) return open(walk, *opening);
        giveTriggerBack(walk);
        on(CaptureEvent::notReady, walk.generation);
    }));
}

void CaptureRouterController::open(const CaptureWalk& walk, const CaptureOpening& opening) {
    anchor_ = opening.anchor;
    previouslyActiveApp_ = opening.context.application;
    CaptureTarget& target = *walk.target;
    draft_.begin(target.commandName());
    input_.open(target, opening.offers, walk.text);
    if (!walk.text.empty()) draft_.changed(walk.text);
    publish();
    on(CaptureEvent::placed, walk.generation);
    to_.log.line("🚀 CaptureRouterController: Entered Capture Mode for target '" + target.commandName() + "'");
    if (target.needsPicker()) loadPickerOptions(target);
    if (to_.overlay.hasKeyboard()) overlayDidBecomeKey();
}

void CaptureRouterController::failsafeCaptureTransition(std::uint64_t generation, int attempts) {
    const CapturePhase phase = transition_.phase();
    const bool isOnTheWay = phase == CapturePhase::stripping || phase == CapturePhase::opening;
    if (generation != transition_.generation() || !isOnTheWay) return;
    if (attempts > maxFailsafeAttempts) {
        if (phase == CapturePhase::stripping) giveTriggerBack(current_);
        return on(CaptureEvent::timedOut, generation);
    }
    later(failsafeInterval, [this, generation, attempts] { failsafeCaptureTransition(generation, attempts + 1); });
}

void CaptureRouterController::overlayDidBecomeKey() { on(CaptureEvent::keyboardTaken); }

void CaptureRouterController::beginCapture() {
    // From here on keys go to the overlay; those before are given to it now. A Return or Escape among them ends the
    // capture, and what follows belongs to the host.
    takeKeptKeys();
    while (transition_.phase() == CapturePhase::capturing) {
        const auto key = hostKeys_.takeFirst();
        if (!key) break;
        giveToOverlay(*key);
    }
    if (transition_.phase() == CapturePhase::capturing && to_.keyInterestChanged) to_.keyInterestChanged({});
}

// While the overlay is open.

void CaptureRouterController::handleOverlayKey(const KeptKey& key) {
    switch (transition_.phase()) {
    case CapturePhase::opening:
    case CapturePhase::capturing: return giveToOverlay(key);
    case CapturePhase::confirming:
        if (input_.state().isWaitingForDisk && key.keyCode == keycode::escape) return cancelCapture();
        [[fallthrough]];
    case CapturePhase::closing:
    case CapturePhase::dismissing:
    case CapturePhase::returning:
    case CapturePhase::stripping: hostKeys_.owe(key); return;
    case CapturePhase::idle:
        if (!handleKeyEvent(key.event())) hostKeys_.give(key);
    }
}

void CaptureRouterController::giveToOverlay(const KeptKey& key) {
    const std::string before = input_.state().messageInput;
    switch (input_.apply(key)) {
    case CaptureInput::Wish::none:
        if (!input_.state().isPickerOpen() && input_.state().messageInput != before)
            draft_.changed(input_.state().messageInput);
        publish();
        return;
    case CaptureInput::Wish::commit: return commitCapture();
    case CaptureInput::Wish::cancel: return cancelCapture();
    }
}

void CaptureRouterController::handleMessageInputChange(const std::string& text) {
    if (!input_.isOpen() || input_.state().isConfirming) return;
    input_.setText(text);
    if (!input_.state().isPickerOpen()) draft_.changed(text);
    publish();
}

void CaptureRouterController::loadPickerOptions(CaptureTarget& target) {
    activePickerOptionsLoadTask_ = std::stop_source();
    input_.optionsAreLoading();
    publish();
    to_.loads.start([this, alive = std::weak_ptr(alive_), &target, stop = activePickerOptionsLoadTask_.get_token(),
                     &mainQueue = to_.mainQueue] {
        if (stop.stop_requested()) return;
        auto options = target.pickerOptions(stop);
        mainQueue.async([this, alive, &target, stop, options = std::move(options)]() mutable {
            if (alive.expired() || stop.stop_requested() || input_.state().currentTarget != &target) return;
            input_.optionsLoaded(std::move(options));
            publish();
        });
    });
}

void CaptureRouterController::moveSelection(int rows) {
    input_.moveSelection(rows);
    publish();
}

void CaptureRouterController::confirmSelectedTarget() {
    if (input_.confirmSelection()) publish();
}

bool CaptureRouterController::handleDeleteOnEmptyInput() {
    if (!input_.deleteOnEmptyInput()) return false;
    publish();
    return true;
}

void CaptureRouterController::acceptOfferedText() {
    input_.acceptOffer();
    if (!input_.state().isPickerOpen() && input_.isOpen()) draft_.changed(input_.state().messageInput);
    publish();
}

void CaptureRouterController::commitCapture() {
    if (input_.state().isPickerOpen()) return confirmSelectedTarget();
    on(CaptureEvent::committed);
}

void CaptureRouterController::writeDown() {
    const CaptureState& state = input_.state();
    Delivery::Request request{draft_.id(), state.currentTarget->commandName(), state.messageInput,
                              state.confirmedTarget};
    input_.setConfirming(true);
    publish();
    const std::uint64_t generation = transition_.generation();
    later(diskPatience, [this, generation] {
        if (generation != transition_.generation() || transition_.phase() != CapturePhase::confirming) return;
        input_.setWaitingForDisk();
        publish();
    });
    to_.journalQueue.async([this, request = std::move(request), taken = input_.takenOffers(), generation] {
        const auto accepted = to_.delivery.accept(request);
        for (const std::string& offer : taken)
            if (accepted) (void)to_.journal.recorded(offer);
        to_.mainQueue.async(whileAlive([this, request, accepted, generation] {
            const bool isWaitedFor =
                generation == transition_.generation() && transition_.phase() == CapturePhase::confirming;
            if (accepted) {
                if (request.id == draft_.id()) draft_.end();
                return on(CaptureEvent::confirmed, generation);
            }
            if (!isWaitedFor) return to_.delivery.keepUnconfirmed(request, accepted.error());
            input_.setFault(accepted.error().description);
            on(CaptureEvent::refused, generation);
        }));
    });
}

void CaptureRouterController::cancelCapture() {
    if (!input_.isOpen()) return;
    exitCaptureMode();
    to_.log.line("⎋ CaptureRouterController: Canceled capture mode");
}

void CaptureRouterController::exitCaptureMode() {
    to_.mainQueue.runOrAsync(whileAlive([this] {
        const CapturePhase phase = transition_.phase();
        if (!CaptureTransition::next(phase, CaptureEvent::cancelled)) return;
        const CaptureState& state = input_.state();
        // One that is on its way to the disk goes on by itself.
        if (phase != CapturePhase::confirming) draft_.cancel(state.isPickerOpen() ? std::string() : state.messageInput);
        on(CaptureEvent::cancelled);
    }));
}

void CaptureRouterController::keepUnsentText() {
    const CaptureState& state = input_.state();
    if (!input_.isOpen() || state.isConfirming || state.isPickerOpen() || trimmed(state.messageInput).empty()) return;
    draft_.end();
    to_.journalQueue.async(
        [&delivery = to_.delivery, request = Delivery::Request{draft_.id(), state.currentTarget->commandName(),
                                                               state.messageInput, state.confirmedTarget}] {
            delivery.keepUnconfirmed(request, {"CaptureRouter", 1, "Snipwren ended before Return was pressed."});
        });
}

// The way out.

void CaptureRouterController::close() {
    activePickerOptionsLoadTask_.request_stop();
    input_.close();
    publish();
    const auto timedOut = [this, generation = transition_.generation()] { on(CaptureEvent::timedOut, generation); };
    closingTimer_ = to_.mainQueue.asyncAfter(returnPatience, whileAlive(timedOut));
    // The tap takes over every key before the overlay lets go of them: what the overlay still gets is older than what the
    // tap keeps, and the host gets both in order.
    if (!to_.keyInterestChanged) return on(CaptureEvent::keysHeld);
    to_.keyInterestChanged(
        [this, alive = std::weak_ptr(alive_), &mainQueue = to_.mainQueue, generation = transition_.generation()] {
            mainQueue.runOrAsync([this, alive, generation] {
                if (!alive.expired()) on(CaptureEvent::keysHeld, generation);
            });
        });
}

void CaptureRouterController::dismiss() {
    to_.mainQueue.cancel(closingTimer_);
    closingTimer_ = to_.mainQueue.asyncAfter(returnPatience, whileAlive([this, generation = transition_.generation()] {
                                                 on(CaptureEvent::timedOut, generation);
                                             }));
    // In the order of typing: what was kept before the overlay had the keyboard, what it still gets, what is kept then.
    takeKeptKeys();
    to_.overlay.dismiss();
    if (previouslyActiveApp_) to_.workspace.activate(*previouslyActiveApp_);
    previouslyActiveApp_.reset();
}

void CaptureRouterController::overlayDidReturnKeyboard() { on(CaptureEvent::keyboardReturned); }

void CaptureRouterController::giveKeysBack() {
    to_.mainQueue.cancel(closingTimer_);
    // In rounds: keys go on arriving until the one round that finds none ends the transition.
    std::optional<CaptureAction> ended;
    do {
        takeKeptKeys();
        if (auto walk = hostKeys_.giveUpToATrigger()) {
            transition_.handle(CaptureEvent::triggered);
            return beginWalk(*std::move(walk));
        }
        ended = transition_.handleIfNothingKept(CaptureEvent::keysGiven);
    } while (!ended && transition_.phase() == CapturePhase::returning);
    if (ended) perform(*ended);
}

void CaptureRouterController::takeKeptKeys() { hostKeys_.owe(transition_.takeKeys()); }

void CaptureRouterController::giveTriggerBack(const CaptureWalk& walk) {
    // Past the model of the text, as one that stayed in the host is: the next Space is not to end it once more.
    for (const KeptKey& key : walk.withheld) hostKeys_.give(key);
}

void CaptureRouterController::publish() {
    if (stateObserver_) stateObserver_(input_.state());
}
} // namespace snipwren
