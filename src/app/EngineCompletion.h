#pragma once

#include "ai/AISuggestionEngine.h"
#include "context/server/AICompletion.h"

namespace snipwren {
/// The AI assistant as the context server asks it. Thread safe.
class EngineCompletion final : public AICompletion {
public:
    explicit EngineCompletion(AISuggestionEngine& engine) : engine_(engine) {}
    Result<Answer, std::string> complete(const Request& request, std::stop_token stop) override;

private:
    AISuggestionEngine& engine_;
};
} // namespace snipwren
