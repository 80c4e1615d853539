#include "ai/OpenAIService.h"

#include "ai/JsonMessages.h"

namespace snipwren {
OpenAIService::OpenAIService(const Dependencies& dependencies)
    : HttpAIProvider(dependencies, {.identifier = "openai",
                                    .name = "OpenAI",
                                    .modelSetting = "openAIModel",
                                    .defaultModel = "gpt-4o",
                                    .addressSetting = "openAIBaseURL",
                                    .defaultAddress = "https://api.openai.com",
                                    .chatPath = "/v1/chat/completions",
                                    .parseError = "Failed to parse response JSON.",
                                    .streamStatusError = "HTTP Stream Error",
                                    .format = AIStreamReader::Format::openAIEvents,
                                    .timeout = cloudTimeout}) {}

Result<std::vector<HttpHeader>, AIError> OpenAIService::authentication() const {
    if (const auto key = apiKey()) return std::vector<HttpHeader>{{"Authorization", "Bearer " + *key}};
    if (!hasDefaultAddress()) return std::vector<HttpHeader>{};
    return unexpected(AIError{AIErrorKind::missingKey, "OpenAI API key is missing in Keychain."});
}

std::string OpenAIService::body(const AIRequest& request, const std::string& model, bool streams) const {
    nlohmann::json json{{"model", model}, {"messages", messagesOf(request)}, {"temperature", 0.7}};
    if (streams) json["stream"] = true;
    return serialized(json);
}

std::optional<AIAnswer> OpenAIService::parseReply(const std::string& body) const {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    const auto text = valueAt(json, "/choices/0/message/content");
    if (!text.is_string()) return std::nullopt;
    return AIAnswer{text.get<std::string>(), valueAt(json, "/choices/0/finish_reason") == "length"};
}
} // namespace snipwren
