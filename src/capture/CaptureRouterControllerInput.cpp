// What happens while capture mode is open: input, picker, commit, and what comes of it.
#include <algorithm>

#include "base/Text.h"
#include "capture/CaptureRouterController.h"

namespace snipwren {
void CaptureRouterController::handleMessageInputChange(const std::string& text) {
    if (!state_.currentTarget) return;
    state_.messageInput = text;
    if (state_.isPickerOpen()) {
        refreshShownOptions();
    } else if (state_.currentTarget->commandName() == "calc") {
        updateCalcLivePreview(text);
    } else if (to_.preview) {
        state_.livePreviewText = to_.preview(state_.currentTarget->commandName(), text);
    }
    publish();
}

void CaptureRouterController::updateCalcLivePreview(const std::string& text) {
    state_.calcLivePreviewText = to_.preview ? to_.preview("calc", text) : std::nullopt;
}

void CaptureRouterController::replayIntoOverlay(const KeptKey& key) {
    if (key.modifiers.control || key.modifiers.command) return; // A shortcut, not text.
    std::string text = state_.messageInput;
    switch (key.keyCode) {
    case keycode::returnKey:
    case keycode::keypadEnter: commitCapture(); return;
    case keycode::escape: cancelCapture(); return;
    case keycode::tab: acceptOfferedText(); return;
    case keycode::upArrow: moveSelection(-1); return;
    case keycode::downArrow: moveSelection(1); return;
    case keycode::deleteKey:
        if (text.empty()) {
            handleDeleteOnEmptyInput();
            return;
        }
        text.resize(lastCharacterStart(text));
        break;
    default:
        if (key.characters.empty() || static_cast<unsigned char>(key.characters.front()) < 0x20) return;
        text += key.characters;
    }
    handleMessageInputChange(text);
}

void CaptureRouterController::replayIntoHost(const KeptKey& key) {
    const Modifiers& held = key.modifiers;
    const bool isShortcut = held.control || held.option || held.command;
    const bool typesText =
        !isShortcut && !key.characters.empty() && static_cast<unsigned char>(key.characters.front()) >= 0x20;
    if (typesText ? to_.keyboard.typeText(key.characters) : to_.keyboard.pressKey(key.keyCode, held)) return;
    to_.log.line("CaptureRouter: A key pressed while the overlay was opening could not be given back");
}

void CaptureRouterController::loadPickerOptions(CaptureTarget& target) {
    activePickerOptionsLoadTask_ = std::stop_source();
    state_.isLoadingOptions = true;
    publish();
    to_.sends.start([this, alive = std::weak_ptr(alive_), &target, stop = activePickerOptionsLoadTask_.get_token()] {
        if (alive.expired()) return;
        auto options = target.pickerOptions(stop);
        to_.mainQueue.async([this, alive, &target, stop, options = std::move(options)]() mutable {
            if (alive.expired() || stop.stop_requested() || state_.currentTarget != &target) return;
            state_.pickerOptions = std::move(options);
            state_.isLoadingOptions = false;
            if (state_.isPickerOpen()) refreshShownOptions();
            publish();
        });
    });
}

void CaptureRouterController::refreshShownOptions() {
    state_.shownOptions =
        state_.messageInput.empty() ? state_.pickerOptions : state_.currentTarget->filteredOptions(state_.messageInput);
    state_.selectedOption =
        state_.shownOptions.empty() ? std::nullopt : std::optional<PickerOption>(state_.shownOptions.front());
}

void CaptureRouterController::moveSelection(int rows) {
    if (!state_.isPickerOpen() || state_.shownOptions.empty()) return;
    const auto& shown = state_.shownOptions;
    const auto found =
        state_.selectedOption ? std::find(shown.begin(), shown.end(), *state_.selectedOption) : shown.end();
    const auto count = static_cast<std::ptrdiff_t>(shown.size());
    const std::ptrdiff_t row = found == shown.end() ? (rows > 0 ? 0 : count - 1) : (found - shown.begin()) + rows;
    state_.selectedOption = shown[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(row, 0, count - 1))];
    publish();
}

void CaptureRouterController::confirmSelectedTarget() {
    if (!state_.isPickerOpen() || !state_.selectedOption) return;
    state_.confirmedTarget = state_.selectedOption;
    state_.isTargetConfirmed = true;
    state_.messageInput.clear(); // It was the filter; the message begins now.
    publish();
}

bool CaptureRouterController::handleDeleteOnEmptyInput() {
    if (!state_.currentTarget || !state_.isTargetConfirmed || !state_.messageInput.empty()) return false;
    state_.confirmedTarget.reset();
    state_.isTargetConfirmed = false;
    refreshShownOptions();
    publish();
    return true;
}

void CaptureRouterController::acceptOfferedText() {
    if (!state_.offeredText || state_.isPickerOpen()) return;
    const std::string text = std::exchange(state_.offeredText, std::nullopt).value();
    handleMessageInputChange(state_.messageInput + text);
}

void CaptureRouterController::commitCapture() {
    if (!state_.currentTarget) return;
    if (state_.isPickerOpen()) {
        confirmSelectedTarget();
        return;
    }
    CaptureTarget& target = *state_.currentTarget;
    const std::string text = state_.messageInput;
    const std::optional<PickerOption> option = state_.confirmedTarget;
    cancelledTexts_.erase(target.commandName());
    exitCaptureMode();
    send(target, text, option);
}

void CaptureRouterController::cancelCapture() {
    if (!state_.currentTarget) return;
    if (!state_.isPickerOpen() && !trimmed(state_.messageInput).empty())
        cancelledTexts_[state_.currentTarget->commandName()] = state_.messageInput;
    exitCaptureMode();
    to_.log.line("⎋ CaptureRouterController: Canceled capture mode");
}

void CaptureRouterController::keepUnsentText() {
    if (!state_.currentTarget || state_.isPickerOpen() || trimmed(state_.messageInput).empty()) return;
    to_.recorder.saveFallback(state_.messageInput, state_.currentTarget->commandName(),
                              {"CaptureRouter", 1, "Snipwren ended before Return was pressed."});
}

void CaptureRouterController::send(CaptureTarget& target, const std::string& text,
                                   const std::optional<PickerOption>& option) {
    ++runningSends_;
    to_.sends.start([this, alive = std::weak_ptr(alive_), &target, text, option, stop = sendStop_.get_token()] {
        const std::string command = target.commandName();
        if (to_.requestPermission) to_.requestPermission(command);
        const auto sent = target.send(text, option, stop);
        if (sent) {
            to_.log.line("✅ CaptureRouterController: Successfully sent capture to '" + command + "'");
            to_.recorder.record(command, text, true);
        } else {
            to_.log.line("❌ CaptureRouterController: Failed to send capture to '" + command
                         + "': " + sent.error().description);
            reportFailure(command, text, sent.error());
        }
        --runningSends_;
    });
}

void CaptureRouterController::reportFailure(const std::string& command, const std::string& text,
                                            const CaptureError& error) {
    const bool saved = to_.recorder.saveFallback(text, command, error);
    to_.recorder.record(command, text, false);
    const RecoveryAction action = to_.recorder.resolve(command, error.description);
    UserInfo notice{
        {"command", command},
        {"detail", error.description},
        {"saved", saved},
        {"message", "Capture failed: " + error.description + (saved ? "\nSaved to local recovery log." : "")},
        {"section", action.section},
        {"actionTitle", action.actionTitle}};
    if (!action.field.empty()) notice.emplace("field", action.field);
    to_.notifications.post("PresentCaptureFailure", std::move(notice));
}
} // namespace snipwren
