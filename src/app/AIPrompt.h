#pragma once

#include "ai/AIAnswerWriter.h"
#include "ai/AIPromptController.h"
#include "app/Environment.h"
#include "app/Host.h"
#include "base/ThreadQueue.h"

namespace snipwren {
class EventTapManager;

/// The quick-action prompt of a host, with the queue that its requests block.
class AIPrompt {
public:
    AIPrompt(Environment& environment, const Host& host, AISuggestionEngine& engine, EventTapManager& tap);

    void start();
    AIPromptController& controller() { return controller_; }

private:
    ThreadQueue worker_;
    AIAnswerWriter writer_;
    AIPromptController controller_;
};
} // namespace snipwren
