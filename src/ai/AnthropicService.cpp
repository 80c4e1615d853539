#include "ai/AnthropicService.h"

#include "ai/JsonMessages.h"

namespace snipwren {
AnthropicService::AnthropicService(const Dependencies& dependencies)
    : HttpAIProvider(dependencies, {.identifier = "anthropic",
                                    .name = "Anthropic",
                                    .modelSetting = "anthropicModel",
                                    .defaultModel = "claude-3-5-sonnet-20241022",
                                    .addressSetting = "anthropicBaseURL",
                                    .defaultAddress = "https://api.anthropic.com",
                                    .chatPath = "/v1/messages",
                                    .parseError = "Failed to parse response JSON.",
                                    .streamStatusError = "HTTP Stream Error",
                                    .format = AIStreamReader::Format::anthropicEvents,
                                    .timeout = cloudTimeout}) {}

Result<std::vector<HttpHeader>, AIError> AnthropicService::authentication() const {
    const auto key = apiKey();
    if (!key) return unexpected(AIError{AIErrorKind::missingKey, "Anthropic API key is missing in Keychain."});
    return std::vector<HttpHeader>{{"x-api-key", *key}, {"anthropic-version", "2023-06-01"}};
}

std::string AnthropicService::body(const AIRequest& request, const std::string& model, bool streams) const {
    nlohmann::json json{{"model", model}, {"max_tokens", request.maxTokens}, {"messages", messagesOf(request)}};
    if (streams) json["stream"] = true;
    return serialized(json);
}

std::optional<AIAnswer> AnthropicService::parseReply(const std::string& body) const {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    const auto text = valueAt(json, "/content/0/text");
    if (!text.is_string()) return std::nullopt;
    return AIAnswer{text.get<std::string>(), valueAt(json, "/stop_reason") == "max_tokens"};
}
} // namespace snipwren
