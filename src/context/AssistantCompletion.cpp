#include "context/AssistantCompletion.h"

#include "ai/AISuggestionEngine.h"

namespace snipwren {
namespace {
std::optional<AIActionType> actionOf(const AICompletion::Request& request) {
    // The custom action's instruction says all; the other actions take the prompt as the text they work on.
    if (request.action == "custom") return AIActionType::custom(request.prompt);
    if (request.action == "rewrite") return AIActionType::rewrite(request.style);
    if (request.action == "translate") return AIActionType::translate(request.language);
    if (request.action == "explain") return AIActionType::explain();
    if (request.action == "summarize") return AIActionType::summarize();
    return std::nullopt;
}
} // namespace

Result<AICompletion::Answer, std::string> AssistantCompletion::complete(const Request& request, std::stop_token stop) {
    const auto action = actionOf(request);
    if (!action)
        return unexpected("Unknown action \"" + request.action
                          + "\". Try: custom, rewrite, translate, explain or summarize");
    const std::string text = action->kind == AIActionType::Kind::custom ? std::string() : request.prompt;
    // What other applications show is not added to a tool's prompt: the tool asks for it separately, if it may.
    auto suggestion = engine_.streamAIResponse(
        *action, text, {}, {}, [](std::string_view) {}, stop);
    if (!suggestion) return unexpected(suggestion.error().description);
    return Answer{std::move(suggestion->text), std::move(suggestion->provider), std::move(suggestion->model),
                  static_cast<std::int64_t>(suggestion->estimatedTokens)};
}
} // namespace snipwren
