#pragma once

#include <vector>

#include "ai/AIProvider.h"

namespace snipwren {
/// Answers at once with what it was told; keeps the requests.
class FakeAIProvider final : public AIProvider {
public:
    explicit FakeAIProvider(std::string identifier) : identifier_(std::move(identifier)) {}

    AIAnswer answer{"the answer", false};
    std::optional<AIError> error;
    bool unusable = false;
    std::vector<AIRequest> requests;
    /// Called in the middle of an answer.
    std::function<void()> midway;

    std::string identifier() const override { return identifier_; }
    std::string displayName() const override { return identifier_; }
    std::string modelName() const override { return identifier_ + "-model"; }
    Result<AIAnswer, AIError> generate(const AIRequest& request, std::stop_token stop) override {
        return stream(request, {}, stop);
    }
    Result<AIAnswer, AIError> stream(const AIRequest& request, const TextHandler& onText,
                                     std::stop_token stop) override {
        requests.push_back(request);
        if (error) return unexpected(*error);
        const std::size_t half = answer.text.size() / 2;
        if (onText) onText(std::string_view(answer.text).substr(0, half));
        if (midway) midway();
        if (stop.stop_requested()) return unexpected(AIError{AIErrorKind::cancelled, "The request was cancelled."});
        if (onText) onText(std::string_view(answer.text).substr(half));
        return answer;
    }
    Result<bool, AIError> validateApiKey(std::stop_token) override { return !unusable; }
    std::optional<AIError> whyUnusable(std::stop_token) override {
        if (!unusable) return std::nullopt;
        return AIError{AIErrorKind::missingKey, identifier_ + " is not ready."};
    }

private:
    const std::string identifier_;
};
} // namespace snipwren
