// Entering and leaving capture mode; what happens while it is open stands in CaptureRouterControllerInput.cpp.
#include "capture/CaptureRouterController.h"

#include <algorithm>
#include <iterator>

#include "base/Text.h"
#include "trigger/FallbackKeyTable.h"

namespace snipwren {
CaptureRouterController::CaptureRouterController(const Dependencies& dependencies, Targets registeredTargets)
    : to_(dependencies),
      registeredTargets_(std::move(registeredTargets)),
      passiveBuffer_(to_.clock),
      stripper_(to_.keyboard, to_.log, to_.pause),
      caretLocator_(to_.screens, to_.clock, to_.log) {
    for (const auto& target : registeredTargets_) commandWords_.push_back(target->commandName());
}

CaptureRouterController::~CaptureRouterController() {
    activePickerOptionsLoadTask_.request_stop();
    sendStop_.request_stop();
    alive_.reset();
}

CaptureTarget* CaptureRouterController::target(const std::string& commandName) const {
    for (const auto& target : registeredTargets_)
        if (target->commandName() == commandName) return target.get();
    return nullptr;
}

bool CaptureRouterController::handleKeyEvent(const KeyEvent& event) { return handlePassiveModeTriggerDetection(event); }

std::optional<PassiveTriggerBuffer::Match> CaptureRouterController::passiveMatch(const KeyEvent& event) {
    // A shortcut types nothing into the field.
    if (event.modifiers.control || event.modifiers.command) return std::nullopt;
    if (event.keyCode == keycode::deleteKey) {
        passiveBuffer_.removeLastCharacter();
        return std::nullopt;
    }
    if (event.keyCode != keycode::space && event.keyCode != keycode::returnKey) {
        passiveBuffer_.append(event.characters.empty()
                                  ? FallbackKeyTable::characters(event.keyCode, event.modifiers.shift)
                                  : event.characters);
        return std::nullopt;
    }
    passiveBuffer_.append(event.keyCode == keycode::space ? " " : "\n");
    return passiveBuffer_.takeMatch(commandWords_);
}

bool CaptureRouterController::handlePassiveModeTriggerDetection(const KeyEvent& event) {
    const auto match = passiveMatch(event);
    if (!match) return false;
    // The application has acted on the Return: a message may be sent, a form gone. There is nothing left to take back.
    if (event.reachedHost && event.keyCode == keycode::returnKey) return false;
    // The walk begins here, on the tap thread, so that not even the next key slips into the host.
    const auto generation = transition_.begin();
    if (!generation) return false;
    beginWalk(*match, event.reachedHost ? 1 : 0, *generation);
    return true;
}

void CaptureRouterController::beginWalk(const PassiveTriggerBuffer::Match& match, std::size_t reachedHost,
                                        std::uint64_t generation) {
    resetPassiveTriggerState(true);
    to_.notifications.post("HideSuggestionsOverlay");
    std::optional<TypedTrigger> trigger;
    if (const std::size_t length = codePointCount(match.triggerBody) + reachedHost; length > 0)
        trigger = TypedTrigger{match.triggerBody, length};
    to_.mainQueue.async([this, alive = std::weak_ptr(alive_), target = match.target, trigger = std::move(trigger),
                         generation]() mutable {
        if (!alive.expired()) enter(*registeredTargets_[target], std::move(trigger), generation);
    });
}

void CaptureRouterController::resetPassiveTriggerState(bool clearBuffer) {
    if (clearBuffer) passiveBuffer_.clear();
}

void CaptureRouterController::suspendPassiveBufferForAppSwitch(const std::string& previousBundleId,
                                                               const std::optional<FieldDescription>& previousElement) {
    if (previousElement) {
        passiveBuffer_.suspend(FocusFingerprint::of(previousBundleId, *previousElement));
    } else if (const auto last = passiveBuffer_.lastTypingFingerprint()) {
        passiveBuffer_.suspend(*last);
    }
}

void CaptureRouterController::restorePassiveBufferIfMatching(const std::string& bundleId,
                                                             const FieldDescription& element) {
    passiveBuffer_.restoreIfMatching(FocusFingerprint::of(bundleId, element));
}

void CaptureRouterController::noteTypingFocus(const std::string& bundleId, const FieldDescription& element) {
    passiveBuffer_.noteTypingFocus(FocusFingerprint::of(bundleId, element));
}

void CaptureRouterController::focusChanged(const std::string& bundleId, const FieldDescription& element) {
    // The overlay's own coming and going is not a change of field.
    if (transition_.isActive() || transition_.isCaptureModeActive()) return;
    passiveBuffer_.focusChanged(FocusFingerprint::of(bundleId, element));
}

void CaptureRouterController::enterCaptureModeUI(CaptureTarget& target) {
    to_.mainQueue.runOrAsync([this, alive = std::weak_ptr(alive_), &target] {
        if (alive.expired() || transition_.isCaptureModeActive()) return;
        if (const auto generation = transition_.begin()) enter(target, std::nullopt, *generation);
    });
}

void CaptureRouterController::enter(CaptureTarget& target, std::optional<TypedTrigger> trigger,
                                    std::uint64_t generation) {
    if (auto notice = missingPathFailure(target.commandName())) {
        to_.notifications.post("PresentCaptureFailure", std::move(*notice));
        abandonTransition(generation);
        return;
    }
    to_.mainQueue.asyncAfter(failsafeInterval, [this, alive = std::weak_ptr(alive_), generation] {
        if (!alive.expired()) failsafeCaptureTransition(generation, 1);
    });
    to_.captureTransitionQueue.async(
        [this, alive = std::weak_ptr(alive_), &target, trigger = std::move(trigger), generation] {
            if (alive.expired()) return;
            HostCaptureContext context = HostFocus::snapshot(to_.workspace, to_.fields);
            if (trigger) stripper_.strip(context.element.get(), *trigger, context.bundleId());
            const Rect anchor = caretLocator_.locate(context.element.get());
            to_.mainQueue.async([this, alive, &target, context = std::move(context), anchor, generation]() mutable {
                if (!alive.expired()) open(target, std::move(context), anchor, generation);
            });
        });
}

void CaptureRouterController::open(CaptureTarget& target, HostCaptureContext context, const Rect& anchor,
                                   std::uint64_t generation) {
    if (!transition_.isUnderWay(generation)) return; // The fail-safe was faster.
    hostContext_ = std::move(context);
    previouslyActiveApp_ = hostContext_.application;
    state_ = CaptureState();
    state_.currentTarget = &target;
    if (const auto cancelled = cancelledTexts_.find(target.commandName()); cancelled != cancelledTexts_.end())
        state_.offeredText = cancelled->second;
    publish();
    to_.overlay.present(anchor);
    to_.log.line("🚀 CaptureRouterController: Entered Capture Mode for target '" + target.commandName() + "'");
    transition_.setCaptureModeActive(true);
    if (target.needsPicker()) loadPickerOptions(target);
    if (to_.overlay.hasKeyboard()) overlayDidBecomeKey();
}

void CaptureRouterController::overlayDidBecomeKey() {
    if (transition_.isActive() && state_.currentTarget) replayKeptKeys(transition_.generation());
}

void CaptureRouterController::abandonTransition(std::uint64_t generation) { replayKeptKeys(generation); }

void CaptureRouterController::replayKeptKeys(std::uint64_t generation) {
    if (isReplaying_ || isReturningKeyboard_ || generation != transition_.generation()) return;
    isReplaying_ = true;
    // In rounds: keys go on arriving until the one round that finds none ends the transition.
    do {
        takeKeptKeys();
        while (state_.currentTarget && !owedKeys_.empty()) {
            const KeptKey key = std::move(owedKeys_.front());
            owedKeys_.pop_front();
            replayIntoOverlay(key);
        }
        // A Return or Escape among them closed the overlay: it may have got keys of its own in the meantime. What was
        // typed behind it belongs to the host again, next triggers included.
        if (isReturningKeyboard_ || replayIntoHostUpToATrigger()) {
            isReplaying_ = false;
            return;
        }
    } while (!transition_.completeIfNothingKept(generation));
    isReplaying_ = false;
    if (to_.keyInterestChanged) to_.keyInterestChanged({});
}

void CaptureRouterController::takeKeptKeys() {
    for (KeptKey& key : transition_.takeKeys(transition_.generation())) owedKeys_.push_back(std::move(key));
}

bool CaptureRouterController::replayIntoHostUpToATrigger() {
    for (std::size_t i = 0; i < owedKeys_.size(); ++i) {
        const auto match = passiveMatch(owedKeys_[i].event());
        if (!match) continue;
        // Keys of the trigger that are still here need not be typed first and removed then; one that opens nothing stays.
        const bool stays = missingPathFailure(commandWords_[match->target]).has_value();
        std::string typed = match->triggerBody;
        std::size_t end = i;
        while (!stays && end > 0 && !typed.empty() && !owedKeys_[end - 1].characters.empty()
               && typed.ends_with(owedKeys_[end - 1].characters))
            typed.resize(typed.size() - owedKeys_[--end].characters.size());
        for (std::size_t k = 0; k < end; ++k) replayIntoHost(owedKeys_[k]);
        std::vector<KeptKey> rest(std::make_move_iterator(owedKeys_.begin() + static_cast<std::ptrdiff_t>(i) + 1),
                                  std::make_move_iterator(owedKeys_.end()));
        owedKeys_.clear();
        beginWalk({match->target, typed}, 0, transition_.restart(std::move(rest)));
        return true;
    }
    for (const KeptKey& key : owedKeys_) replayIntoHost(key);
    owedKeys_.clear();
    return false;
}

void CaptureRouterController::handleOverlayKey(const KeptKey& key) {
    if (state_.currentTarget) {
        replayIntoOverlay(key);
    } else if (isReturningKeyboard_) {
        owedKeys_.push_back(key);
    } else if (!handleKeyEvent(key.event())) {
        replayIntoHost(key);
    }
}

void CaptureRouterController::failsafeCaptureTransition(std::uint64_t generation, int attempts) {
    if (!transition_.isUnderWay(generation)) return;
    if (attempts > maxFailsafeAttempts) {
        if (state_.currentTarget) {
            overlayDidBecomeKey();
        } else {
            abandonTransition(generation);
        }
        return;
    }
    to_.mainQueue.asyncAfter(failsafeInterval, [this, alive = std::weak_ptr(alive_), generation, attempts] {
        if (!alive.expired()) failsafeCaptureTransition(generation, attempts + 1);
    });
}

void CaptureRouterController::exitCaptureMode() {
    to_.mainQueue.runOrAsync([this, alive = std::weak_ptr(alive_)] {
        if (alive.expired() || !transition_.isCaptureModeActive()) return;
        activePickerOptionsLoadTask_.request_stop();
        state_ = CaptureState();
        publish();
        isReturningKeyboard_ = true;
        transition_.setCaptureModeActive(false);
        returnTimer_ = to_.mainQueue.asyncAfter(returnPatience, [this, alive] {
            if (alive.expired()) return;
            returnKeyboard();
            overlayDidReturnKeyboard();
        });
        // The way back is a transition too. The tap takes over every key before the overlay lets go of them: what the
        // overlay still gets is older than what the tap keeps, and the host gets both in order.
        const bool tapHoldsKeys = !transition_.begin();
        if (tapHoldsKeys || !to_.keyInterestChanged) return returnKeyboard();
        to_.keyInterestChanged([this, alive, &mainQueue = to_.mainQueue] {
            mainQueue.runOrAsync([this, alive] {
                if (!alive.expired()) returnKeyboard();
            });
        });
    });
}

void CaptureRouterController::returnKeyboard() {
    if (!isReturningKeyboard_) return;
    // In the order of typing: what was kept before the overlay had the keyboard, what it still gets, what is kept then.
    takeKeptKeys();
    to_.overlay.dismiss();
    if (previouslyActiveApp_) to_.workspace.activate(*previouslyActiveApp_);
    previouslyActiveApp_.reset();
    hostContext_ = HostCaptureContext();
}

void CaptureRouterController::overlayDidReturnKeyboard() {
    if (!std::exchange(isReturningKeyboard_, false)) return;
    to_.mainQueue.cancel(returnTimer_);
    replayKeptKeys(transition_.generation());
}

std::optional<UserInfo> CaptureRouterController::missingPathFailure(const std::string& commandName) const {
    const bool isObsidian = commandName == "obsidian";
    if (!isObsidian && commandName != "logseq") return std::nullopt;
    const std::string label = isObsidian ? "Obsidian vault" : "Logseq graph";
    const std::string configured =
        to_.defaults.string(isObsidian ? "obsidianVaultPath" : "logseqGraphPath").value_or("");
    const std::string path = expandedTilde(trimmed(configured), to_.paths.home);
    std::string message;
    if (path.empty()) {
        message =
            "No " + label + " folder is set. Choose the folder in Settings, then type //" + commandName + " again.";
    } else if (!to_.files.isFolder(path)) {
        message = label + " path does not exist or is not a folder: " + path + ". Choose it again in Settings.";
    } else {
        return std::nullopt;
    }
    const RecoveryAction action = to_.recorder.resolve(commandName, "path");
    UserInfo notice{{"command", commandName},
                    {"detail", "path"},
                    {"message", std::move(message)},
                    {"section", action.section},
                    {"actionTitle", action.actionTitle}};
    if (!action.field.empty()) notice.emplace("field", action.field);
    return notice;
}

void CaptureRouterController::publish() {
    if (stateObserver_) stateObserver_(state_);
}
} // namespace snipwren
