#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "base/Result.h"

namespace snipwren {
/// What the context server needs of the AI assistant. Blocking; called on several threads at once.
class AICompletion {
public:
    struct Request {
        std::string prompt;
        /// An action's raw name.
        std::string action = "custom";
        std::string style = "professional";
        std::string language = "English";
        std::optional<std::int64_t> maxTokens;
    };
    struct Answer {
        std::string text;
        std::string provider;
        std::string model;
        std::int64_t estimatedTokens = 0;
    };

    virtual ~AICompletion() = default;
    /// The error is the sentence for the asking tool. Ends early when the token is stopped.
    virtual Result<Answer, std::string> complete(const Request& request, std::stop_token stop) = 0;
};
} // namespace snipwren
