#pragma once

#include <array>

#include "ai/AISuggestionEngine.h"
#include "ai/AnthropicService.h"
#include "ai/LocalOllamaService.h"
#include "ai/OpenAIService.h"
#include "base/ThreadQueue.h"
#include "base/UserDefaults.h"
#include "platform/HttpClient.h"
#include "store/KeychainHelper.h"
#include "store/PrivacyFirewall.h"

namespace snipwren {
/// The AI part of the object graph: the providers, in the order in which they are tried, and the engine over them.
class AIAssistant {
public:
    struct Dependencies {
        HttpClient& http;
        KeychainHelper& secrets;
        UserDefaults& defaults;
        PrivacyFirewall& firewall;
        FocusedField& fields;
        Workspace& workspace;
        const Clock& clock;
    };
    explicit AIAssistant(const Dependencies& dependencies);

    /// Starts the cache's queue.
    void start() { cacheQueue_.start(); }
    AISuggestionEngine& engine() { return engine_; }

private:
    ThreadQueue cacheQueue_;
    LocalOllamaService ollama_;
    AnthropicService anthropic_;
    OpenAIService openAI_;
    const std::array<AIProvider*, 3> providers_;
    AISuggestionEngine engine_;
};
} // namespace snipwren
