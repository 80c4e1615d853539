#pragma once

#include "ai/HttpAIProvider.h"

namespace snipwren {
/// The OpenAI chat completions API, and the servers that speak it; one on this computer needs no key.
class OpenAIService final : public HttpAIProvider {
public:
    explicit OpenAIService(const Dependencies& dependencies);

protected:
    Result<std::vector<HttpHeader>, AIError> authentication() const override;
    std::string body(const AIRequest& request, const std::string& model, bool streams) const override;
    std::optional<AIAnswer> parseReply(const std::string& body) const override;
};
} // namespace snipwren
