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
    /// The text of an earlier capture to this target that was cancelled in this run; Tab takes it back.
    std::optional<std::string> offeredText;

    bool isPickerOpen() const { return currentTarget && currentTarget->needsPicker() && !isTargetConfirmed; }
};
} // namespace snipwren
