#pragma once

#include <optional>
#include <string>
#include <vector>

#include "capture/CaptureTarget.h"

namespace snipwren {
/// What the overlay shows: the router's published state.
struct CaptureState {
    /// The text typed in the overlay; while a picker is open, its filter.
    std::string messageInput;
    /// None outside capture mode.
    CaptureTarget* currentTarget = nullptr;
    /// All choices of a target that needs a picker, and those of them that the filter lets through, best first.
    std::vector<PickerOption> pickerOptions;
    std::vector<PickerOption> shownOptions;
    std::optional<PickerOption> selectedOption;
    std::optional<PickerOption> confirmedTarget;
    bool isTargetConfirmed = false;
    bool isLoadingOptions = false;
    /// The result so far of a calculation.
    std::optional<std::string> calcLivePreviewText;
    /// What Return would do, for the other targets that read dates or durations out of the text.
    std::optional<std::string> livePreviewText;
    /// A text that was cancelled at the same target; Tab takes it, and once more the one before it.
    std::optional<std::string> offeredText;
    /// Return was pressed: what is typed from now on is not for the overlay.
    bool isConfirming = false;
    /// The disk takes its time; Escape leaves.
    bool isWaitingForDisk = false;
    /// Why the text could not be kept; empty when all is well.
    std::string fault;

    bool isPickerOpen() const { return currentTarget && currentTarget->needsPicker() && !isTargetConfirmed; }
};
} // namespace snipwren
