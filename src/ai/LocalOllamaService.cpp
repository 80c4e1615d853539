#include "ai/LocalOllamaService.h"

#include "ai/JsonMessages.h"

namespace snipwren {
LocalOllamaService::LocalOllamaService(const Dependencies& dependencies)
    : HttpAIProvider(dependencies, {.identifier = "ollama",
                                    .name = "Local Ollama",
                                    .modelSetting = "ollamaModel",
                                    .defaultModel = "llama3",
                                    .addressSetting = "ollamaBaseURL",
                                    .defaultAddress = "http://localhost:11434",
                                    .chatPath = "/api/chat",
                                    .parseError = "Failed to parse Ollama response.",
                                    .streamStatusError = "HTTP Ollama Stream Error",
                                    .format = AIStreamReader::Format::ollamaLines,
                                    .timeout = localTimeout}) {}

Result<std::vector<HttpHeader>, AIError> LocalOllamaService::authentication() const {
    return std::vector<HttpHeader>{};
}

std::string LocalOllamaService::body(const AIRequest& request, const std::string& model, bool streams) const {
    return serialized({{"model", model},
                       {"messages", messagesOf(request)},
                       {"stream", streams},
                       {"options", {{"num_predict", request.maxTokens}}}});
}

std::optional<AIAnswer> LocalOllamaService::parseReply(const std::string& body) const {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    const auto text = valueAt(json, "/message/content");
    if (!text.is_string()) return std::nullopt;
    return AIAnswer{text.get<std::string>(), valueAt(json, "/done_reason") == "length"};
}

Result<std::vector<std::string>, AIError> LocalOllamaService::installedModels(std::stop_token stop) {
    auto url = address("/api/tags");
    if (!url) return unexpected(url.error());
    HttpRequest request;
    request.url = *std::move(url);
    request.headers = {{"Content-Type", "application/json"}};
    request.connectTimeout = request.timeout = localTimeout;
    request.totalTimeout = localTimeout;
    const auto reply = http_.send(request, stop);
    if (!reply) return unexpected(describe(reply.error()));
    if (!reply->succeeded())
        return unexpected(
            AIError{AIErrorKind::httpStatus, "HTTP Error " + std::to_string(reply->status), reply->status});
    const auto models = valueAt(nlohmann::json::parse(reply->body, nullptr, false), "/models");
    if (!models.is_array()) return unexpected(AIError{AIErrorKind::badResponse, traits_.parseError});
    std::vector<std::string> names;
    for (const auto& model : models)
        if (const auto name = valueAt(model, "/name"); name.is_string()) names.push_back(name);
    return names;
}

Result<bool, AIError> LocalOllamaService::validateApiKey(std::stop_token stop) {
    if (const auto models = installedModels(stop); !models) return unexpected(models.error());
    return true;
}

std::optional<AIError> LocalOllamaService::whyUnusable(std::stop_token stop) {
    const auto models = installedModels(stop);
    if (!models) return models.error();
    return std::nullopt;
}
} // namespace snipwren
