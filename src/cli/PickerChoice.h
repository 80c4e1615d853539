#pragma once

#include <string>
#include <vector>

#include "base/Result.h"
#include "capture/CaptureTarget.h"

namespace snipwren {
/// The one option that a name on the command line means: its identifier, its whole display name, or that without the
/// sign in front. Nothing is guessed: for any other name, or one that means several, the error is a sentence that lists
/// the candidates.
Result<PickerOption, std::string> chooseOption(const std::vector<PickerOption>& options,
                                               const std::vector<PickerOption>& similar, const std::string& name);
} // namespace snipwren
