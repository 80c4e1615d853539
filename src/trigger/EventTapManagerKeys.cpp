// The decision about one key press: whom it belongs to, and whether the application gets it.
#include <array>

#include "trigger/EventTapManager.h"

namespace snipwren {
namespace {
bool isControlOnly(const Modifiers& m) { return m.control && !m.shift && !m.option && !m.command; }

/// The modifiers that pass in the AI prompt.
bool isPureModifier(int keyCode) {
    return keyCode == keycode::command || keyCode == keycode::shift || keyCode == keycode::option
           || keyCode == keycode::control || keyCode == keycode::rightOption;
}

/// The keys 1 to 6 of the top row, by the position they select.
constexpr std::array<int, 6> suggestionKeys{18, 19, 20, 21, 23, 22};
} // namespace

bool EventTapManager::handleKeyEvent(const KeyEvent& event) {
    {
        const std::lock_guard lock(tapLock_);
        consecutiveTimeouts_ = 0;
        lastKeyPressTime_ = to_.clock.steadyNow();
    }
    if (to_.ownWindows.isOwnWindowKey()) return false;
    const std::shared_ptr<const RunningApplication> front = to_.workspace.frontmostApplication();
    if (to_.workspace.isSecureInputEnabled() || (front && to_.exclusions.isExcluded(*front))) {
        clearContext(std::nullopt, true);
        return false;
    }
    // Modifiers pass even now: one held back would stay pressed, or not, in the application's eyes. What the application
    // has got already is not to come twice.
    if (to_.router.isCaptureTransitionThreadSafe() && !keycode::isModifier(event.keyCode)) {
        if (event.reachedHost) return false;
        if (to_.router.keepTransitionKey(event)) return true;
    }
    if (!to_.router.isCaptureModeActiveThreadSafe() && to_.router.handleKeyEvent(event)) return true;

    if (event.keyCode < 0 || event.keyCode > 65535) return false;
    for (const auto rule : {&EventTapManager::applyControlSpace, &EventTapManager::applyAIPromptKey,
                            &EventTapManager::applySuggestionKeys, &EventTapManager::applySpaceCleanUp,
                            &EventTapManager::applyShortcuts}) {
        const Verdict verdict = (this->*rule)(event);
        if (verdict != Verdict::next) return verdict == Verdict::swallow;
    }
    if (event.modifiers.control || event.modifiers.command) return false;
    // Nobody listens: what was typed is not even copied.
    if (delegate_) {
        to_.processingQueue.async(
            [this, code = event.keyCode, characters = std::string(event.characters),
             bundleId = front ? front->bundleId : std::string()] { processKeystroke(code, characters, bundleId); });
    }
    return false;
}

void EventTapManager::handleMissedKeys() {
    // Keys that the overlay gets are not missed, and what was typed is in the router's hands until it has replayed it.
    if (!to_.router.isCaptureTransitionThreadSafe()) clearContext(std::nullopt, true);
}

void EventTapManager::handlePointerPress() { to_.router.notePointerPress(); }

KeyInterest EventTapManager::keyInterest() const {
    return isAIPromptMode ? KeyInterest::everything : to_.router.keyInterest();
}

std::vector<KeyChord> EventTapManager::swallowableChords() const {
    const Modifiers control{.control = true};
    std::vector<KeyChord> chords{
        {keycode::space, control}, {keycode::space, {.control = true, .shift = true}}, {keycode::digit0, control}};
    if (isPlaceholderModeActive || (isSuggestionsOverlayVisible && delegate_)) chords.push_back({keycode::tab, {}});
    if (isSuggestionsOverlayVisible && delegate_) {
        const unsigned held = shortcutModifiers_;
        chords.push_back({keycode::returnKey, {}});
        for (const int key : suggestionKeys) {
            chords.push_back({key,
                              {.control = (held & 1) != 0,
                               .shift = (held & 4) != 0,
                               .option = (held & 2) != 0,
                               .command = (held & 8) != 0}});
        }
    }
    if (lastActionWasSuggestionWithTrailingSpace) chords.push_back({keycode::space, {}});
    return chords;
}

EventTapManager::Verdict EventTapManager::announce(const char* notification, UserInfo info) {
    to_.notifications.post(notification, std::move(info));
    return Verdict::swallow;
}

EventTapManager::Verdict EventTapManager::applyControlSpace(const KeyEvent& event) {
    const Modifiers& m = event.modifiers;
    if (event.keyCode != keycode::space || !m.control || m.option || m.command) return Verdict::next;
    return announce(m.shift ? "TriggerAIQuickActions" : "TriggerManualSuggestions");
}

EventTapManager::Verdict EventTapManager::applyAIPromptKey(const KeyEvent& event) {
    if (!isAIPromptMode) return Verdict::next;
    if (isPureModifier(event.keyCode)) return Verdict::pass;
    switch (event.keyCode) {
    case keycode::leftArrow: return announce("CycleAIActionLeft");
    case keycode::rightArrow: return announce("CycleAIActionRight");
    case keycode::deleteKey: return announce("DeleteAIPromptChar");
    case keycode::escape: return announce("CancelAIPrompt");
    case keycode::returnKey: return announce("CommitAIPrompt");
    default: break;
    }
    if (event.characters.empty()) return Verdict::swallow;
    return announce("AppendAIPromptChar", {{"characters", std::string(event.characters)}});
}

EventTapManager::Verdict EventTapManager::applySuggestionKeys(const KeyEvent& event) {
    const bool isTab = event.keyCode == keycode::tab;
    if (isSuggestionsOverlayVisible && delegate_) {
        if (isTab && !isPlaceholderModeActive) {
            to_.mainQueue.async([delegate = delegate_] { delegate->handleTab(); });
            return Verdict::swallow;
        }
        if (event.keyCode == keycode::returnKey) {
            to_.mainQueue.async([delegate = delegate_] { delegate->handleReturn(); });
            return Verdict::swallow;
        }
    }
    if (isTab && isPlaceholderModeActive) return announce("TabPlaceholderPressed");
    return Verdict::next;
}

EventTapManager::Verdict EventTapManager::applySpaceCleanUp(const KeyEvent& event) {
    if (!lastActionWasSuggestionWithTrailingSpace || event.characters.empty()) return Verdict::next;
    lastActionWasSuggestionWithTrailingSpace = false;
    if (event.keyCode == keycode::space) {
        to_.log.line("🔍 PredictiveOverlay EventTap: Swallowed space to prevent double space");
        return Verdict::swallow;
    }
    if (event.characters.size() == 1 && std::string_view(",.!?;:").find(event.characters) != std::string_view::npos) {
        to_.keyboard.pressKey(keycode::deleteKey, {});
        to_.log.line("🔍 PredictiveOverlay EventTap: Deleted trailing space before punctuation '"
                     + std::string(event.characters) + "'");
    }
    return Verdict::next;
}

EventTapManager::Verdict EventTapManager::applyShortcuts(const KeyEvent& event) {
    const Modifiers& m = event.modifiers;
    if (event.keyCode == keycode::digit0 && isControlOnly(m)) return announce("TogglePerAppMute");
    if (isSuggestionsOverlayVisible && delegate_) {
        const unsigned held =
            (m.control ? 1U : 0U) | (m.option ? 2U : 0U) | (m.shift ? 4U : 0U) | (m.command ? 8U : 0U);
        for (std::size_t i = 0; held == shortcutModifiers_ && i < suggestionKeys.size(); ++i) {
            if (event.keyCode != suggestionKeys[i]) continue;
            to_.mainQueue.async([delegate = delegate_, i] { delegate->selectSuggestion(static_cast<int>(i) + 1); });
            return Verdict::swallow;
        }
    }
    if (event.keyCode == keycode::escape) {
        announce("EscapePlaceholderPressed");
        return Verdict::pass;
    }
    return Verdict::next;
}

void EventTapManager::processKeystroke(int keyCode, const std::string& characters, const std::string& appBundleId) {
    if (keyCode == keycode::deleteKey) {
        typingContext_.removeLastCharacter();
    } else {
        typingContext_.append(characters);
    }
    if (delegate_) delegate_->typingContextChanged(typingContext_.snapshot(), appBundleId);
}
} // namespace snipwren
