#include "capture/CaptureInput.h"

#include <algorithm>
#include <utility>

#include "base/Text.h"

namespace snipwren {
void CaptureInput::open(CaptureTarget& target, std::vector<CaptureJournal::Offer> offers, const std::string& text) {
    state_ = CaptureState();
    state_.currentTarget = &target;
    offers_ = std::move(offers);
    offersTaken_ = 0;
    if (!offers_.empty()) state_.offeredText = offers_.front().text;
    brought_.clear();
    if (state_.isPickerOpen()) {
        brought_ = text;
    } else if (!text.empty()) {
        setText(text);
    }
}

void CaptureInput::close() {
    state_ = CaptureState();
    offers_.clear();
}

void CaptureInput::setText(const std::string& text) {
    if (!isOpen()) return;
    state_.messageInput = text;
    state_.fault.clear();
    state_.isPickerOpen() ? refreshShownOptions() : refreshPreview();
}

void CaptureInput::refreshPreview() {
    const CaptureTarget& target = *state_.currentTarget;
    auto& shown = target.previewIsResult() ? state_.calcLivePreviewText : state_.livePreviewText;
    shown = target.preview(state_.messageInput);
}

CaptureInput::Wish CaptureInput::apply(const KeptKey& key) {
    if (key.modifiers.makeShortcut()) return Wish::none; // Not text.
    std::string text = state_.messageInput;
    switch (key.keyCode) {
    case keycode::returnKey:
    case keycode::keypadEnter: return Wish::commit;
    case keycode::escape: return Wish::cancel;
    case keycode::tab: acceptOffer(); return Wish::none;
    case keycode::upArrow: moveSelection(-1); return Wish::none;
    case keycode::downArrow: moveSelection(1); return Wish::none;
    case keycode::deleteKey:
        if (text.empty()) {
            deleteOnEmptyInput();
            return Wish::none;
        }
        text.resize(lastCharacterStart(text));
        break;
    default: {
        const std::string_view typed = textOf(key.characters);
        if (typed.empty()) return Wish::none;
        text += typed;
    }
    }
    setText(text);
    return Wish::none;
}

void CaptureInput::optionsAreLoading() { state_.isLoadingOptions = true; }

void CaptureInput::optionsLoaded(std::vector<PickerOption> options) {
    state_.pickerOptions = std::move(options);
    state_.isLoadingOptions = false;
    if (state_.isPickerOpen()) refreshShownOptions();
}

void CaptureInput::refreshShownOptions() {
    state_.shownOptions =
        state_.messageInput.empty() ? state_.pickerOptions : state_.currentTarget->filteredOptions(state_.messageInput);
    state_.selectedOption =
        state_.shownOptions.empty() ? std::nullopt : std::optional<PickerOption>(state_.shownOptions.front());
}

void CaptureInput::moveSelection(int rows) {
    if (!state_.isPickerOpen() || state_.shownOptions.empty()) return;
    const auto& shown = state_.shownOptions;
    const auto found =
        state_.selectedOption ? std::find(shown.begin(), shown.end(), *state_.selectedOption) : shown.end();
    const auto count = static_cast<std::ptrdiff_t>(shown.size());
    const std::ptrdiff_t row = found == shown.end() ? (rows > 0 ? 0 : count - 1) : (found - shown.begin()) + rows;
    state_.selectedOption = shown[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(row, 0, count - 1))];
}

bool CaptureInput::confirmSelection() {
    if (!state_.isPickerOpen() || !state_.selectedOption) return false;
    state_.confirmedTarget = state_.selectedOption;
    state_.isTargetConfirmed = true;
    state_.messageInput.clear(); // It was the filter; the message begins now.
    setText(std::exchange(brought_, {}));
    return true;
}

bool CaptureInput::deleteOnEmptyInput() {
    if (!isOpen() || !state_.isTargetConfirmed || !state_.messageInput.empty()) return false;
    state_.confirmedTarget.reset();
    state_.isTargetConfirmed = false;
    refreshShownOptions();
    return true;
}

void CaptureInput::acceptOffer() {
    if (!state_.offeredText || state_.isPickerOpen()) return;
    // Tab again takes the one before it, in its place.
    const bool replaces = offersTaken_ > 0 && state_.messageInput == offers_[offersTaken_ - 1].text;
    const std::string text = (replaces ? "" : state_.messageInput) + offers_[offersTaken_].text;
    ++offersTaken_;
    state_.offeredText =
        offersTaken_ < offers_.size() ? std::optional<std::string>(offers_[offersTaken_].text) : std::nullopt;
    setText(text);
}

std::vector<std::string> CaptureInput::takenOffers() const {
    std::vector<std::string> taken;
    for (std::size_t i = 0; i < offersTaken_; ++i)
        if (state_.messageInput.find(offers_[i].text) != std::string::npos) taken.push_back(offers_[i].id);
    return taken;
}

void CaptureInput::setConfirming(bool confirming) {
    state_.isConfirming = confirming;
    state_.isWaitingForDisk = false;
}
} // namespace snipwren
