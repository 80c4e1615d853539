#pragma once

#include "context/AICompletion.h"

namespace snipwren {
class AISuggestionEngine;

/// The AI assistant as the context server asks it. The tokens of an answer are limited by the user's setting; a tool may
/// not raise them. Thread safe, as the engine is.
class AssistantCompletion final : public AICompletion {
public:
    explicit AssistantCompletion(AISuggestionEngine& engine) : engine_(engine) {}
    Result<Answer, std::string> complete(const Request& request, std::stop_token stop) override;

private:
    AISuggestionEngine& engine_;
};
} // namespace snipwren
