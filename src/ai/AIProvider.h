#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace snipwren {
struct AIRequest {
    static constexpr int defaultMaxTokens = 1024;
    std::string prompt;
    int maxTokens = defaultMaxTokens;
    /// Instead of the provider's own setting.
    std::optional<std::string> model;
};

struct AIAnswer {
    std::string text;
    /// The token limit was reached: the text lacks its end.
    bool isCutOff = false;
};

enum class AIErrorKind {
    missingKey,
    invalidKey,
    unknownModel,
    badSetting,
    network,
    timeout,
    cancelled,
    httpStatus,
    badResponse,
    /// The stream ended before the answer did.
    incomplete,
    /// The text may not leave this machine.
    refusedByPrivacy,
    nothingToDo,
};

struct AIError {
    AIErrorKind kind = AIErrorKind::network;
    /// A sentence for the user. Never holds a key or the text that was to be sent.
    std::string description;
    int status = 0;
};

/// One service that answers prompts. Its calls block, and a stop request ends them at any point. Thread safe.
class AIProvider {
public:
    /// Gets the answer's next piece, whole characters only, on the thread of the call.
    using TextHandler = std::function<void(std::string_view text)>;

    virtual ~AIProvider() = default;
    /// The word that the setting `aiProvider` holds.
    virtual std::string identifier() const = 0;
    virtual std::string displayName() const = 0;
    /// The model that a request without one of its own gets.
    virtual std::string modelName() const = 0;

    virtual Result<AIAnswer, AIError> generate(const AIRequest& request, std::stop_token stop) = 0;
    virtual Result<AIAnswer, AIError> stream(const AIRequest& request, const TextHandler& onText,
                                             std::stop_token stop) = 0;
    /// False when the service does not accept the key.
    virtual Result<bool, AIError> validateApiKey(std::stop_token stop) = 0;
    /// Why it cannot be used, found out without sending a prompt; none when it can.
    virtual std::optional<AIError> whyUnusable(std::stop_token stop) = 0;
};
} // namespace snipwren
