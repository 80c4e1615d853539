#pragma once

#include <string>
#include <vector>

#include "capture/CaptureState.h"
#include "platform/KeyEvent.h"
#include "records/CaptureJournal.h"

namespace snipwren {
/// What is typed and chosen in an open overlay. Knows nothing of keyboards, hosts and sending. Main queue.
class CaptureInput {
public:
    /// What a key asks for beyond the text.
    enum class Wish { none, commit, cancel };

    const CaptureState& state() const { return state_; }
    bool isOpen() const { return state_.currentTarget != nullptr; }
    /// `offers`: texts cancelled earlier, newest first.
    void open(CaptureTarget& target, std::vector<CaptureJournal::Offer> offers, const std::string& text);
    void close();

    void setText(const std::string& text);
    /// One key for an overlay without a text field of its own.
    Wish apply(const KeptKey& key);
    void optionsAreLoading();
    void optionsLoaded(std::vector<PickerOption> options);
    /// By one row up (-1) or down (1).
    void moveSelection(int rows);
    /// False when there was nothing to confirm.
    bool confirmSelection();
    /// Delete in an empty message goes back to the picker; true when it did.
    bool deleteOnEmptyInput();
    void acceptOffer();
    /// The identifiers of the offers that stand in the text.
    std::vector<std::string> takenOffers() const;
    void setConfirming(bool confirming);
    void setWaitingForDisk() { state_.isWaitingForDisk = true; }
    void setFault(const std::string& fault) { state_.fault = fault; }

private:
    void refreshShownOptions();
    void refreshPreview();

    CaptureState state_;
    /// A text that was brought along and waits for the picker's choice.
    std::string brought_;
    std::vector<CaptureJournal::Offer> offers_;
    /// How many of the offers were taken.
    std::size_t offersTaken_ = 0;
};
} // namespace snipwren
