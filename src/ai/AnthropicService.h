#pragma once

#include "ai/HttpAIProvider.h"

namespace snipwren {
/// The Anthropic messages API.
class AnthropicService final : public HttpAIProvider {
public:
    explicit AnthropicService(const Dependencies& dependencies);

protected:
    Result<std::vector<HttpHeader>, AIError> authentication() const override;
    std::string body(const AIRequest& request, const std::string& model, bool streams) const override;
    std::optional<AIAnswer> parseReply(const std::string& body) const override;
};
} // namespace snipwren
