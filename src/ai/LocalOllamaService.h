#pragma once

#include "ai/HttpAIProvider.h"

namespace snipwren {
/// An Ollama server on this computer.
class LocalOllamaService final : public HttpAIProvider {
public:
    explicit LocalOllamaService(const Dependencies& dependencies);

    /// There is no key: true when the server answers.
    Result<bool, AIError> validateApiKey(std::stop_token stop) override;
    /// Asks the server, so it takes up to the time-out.
    std::optional<AIError> whyUnusable(std::stop_token stop) override;
    Result<std::vector<std::string>, AIError> installedModels(std::stop_token stop);

protected:
    Result<std::vector<HttpHeader>, AIError> authentication() const override;
    std::string body(const AIRequest& request, const std::string& model, bool streams) const override;
    std::optional<AIAnswer> parseReply(const std::string& body) const override;
};
} // namespace snipwren
