#pragma once

#include <cstddef>
#include <string>

#include "ai/AIActionType.h"
#include "base/Clock.h"

namespace snipwren {
/// One answer of the assistant and where it came from.
struct AISuggestion {
    std::string provider;
    std::string model;
    std::string originalPrompt;
    AIActionType actionType;
    TimePoint timestamp{};
    std::size_t estimatedTokens = 0;
    std::string text;
    bool isCutOff = false;
    bool fromCache = false;

    std::string displayName() const { return provider + " (" + model + ")"; }
    std::string title() const { return actionType.label(); }
    std::string subtitle() const { return displayName() + ", about " + std::to_string(estimatedTokens) + " tokens"; }
};
} // namespace snipwren
