#include "app/EngineCompletion.h"

#include "base/Text.h"

namespace snipwren {
namespace {
std::optional<AIActionType> actionOf(const AICompletion::Request& request) {
    const std::string name = asciiLowercased(request.action);
    if (name == "custom") return AIActionType::custom(request.prompt);
    if (name == "rewrite") return AIActionType::rewrite(request.style);
    if (name == "translate") return AIActionType::translate(request.language);
    if (name == "explain") return AIActionType::explain();
    if (name == "summarize") return AIActionType::summarize();
    return std::nullopt;
}
} // namespace

Result<AICompletion::Answer, std::string> EngineCompletion::complete(const Request& request, std::stop_token stop) {
    const auto action = actionOf(request);
    if (!action)
        return unexpected("Unknown action \"" + sanitizedUtf8(request.action)
                          + "\". Try: custom, rewrite, translate, explain or summarize");
    // A free prompt is the instruction itself and comes without a text; the other actions work on it.
    const bool isFree = action->kind == AIActionType::Kind::custom;
    const auto answer = engine_.streamAIResponse(*action, isFree ? std::string() : request.prompt, {},
                                                 {std::nullopt, std::nullopt, request.maxTokens}, {}, stop);
    if (!answer) return unexpected(answer.error().description);
    return Answer{answer->text, answer->provider, answer->model, static_cast<std::int64_t>(answer->estimatedTokens)};
}
} // namespace snipwren
