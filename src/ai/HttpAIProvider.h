#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "ai/AIProvider.h"
#include "ai/AIStreamReader.h"
#include "base/UserDefaults.h"
#include "platform/HttpClient.h"

namespace snipwren {
class KeychainHelper;

/// What the three providers share: the key, the model and address settings, one request and its errors in sentences.
class HttpAIProvider : public AIProvider {
public:
    /// Whose secrets the providers' keys are.
    static constexpr const char* keyOwner = "SnipwrenAI";
    static constexpr std::chrono::seconds cloudTimeout{15};
    static constexpr std::chrono::seconds localTimeout{5};
    /// A server that drips for ever is left at last.
    static constexpr std::chrono::minutes wholeTimeout{5};
    static constexpr std::uint64_t maxReplyBytes = 32ull * 1024 * 1024;

    struct Dependencies {
        HttpClient& http;
        KeychainHelper& secrets;
        UserDefaults& defaults;
    };

    std::string identifier() const override { return traits_.identifier; }
    std::string displayName() const override;
    std::string modelName() const override;
    Result<AIAnswer, AIError> generate(const AIRequest& request, std::stop_token stop) override;
    Result<AIAnswer, AIError> stream(const AIRequest& request, const TextHandler& onText,
                                     std::stop_token stop) override;
    Result<bool, AIError> validateApiKey(std::stop_token stop) override;
    std::optional<AIError> whyUnusable(std::stop_token stop) override;

    /// https to anywhere, http to this machine only; no user information and no query.
    static bool isAllowedBaseURL(std::string_view url);

protected:
    struct Traits {
        const char* identifier;
        const char* name;
        const char* modelSetting;
        const char* defaultModel;
        const char* addressSetting;
        const char* defaultAddress;
        const char* chatPath;
        const char* parseError;
        const char* streamStatusError;
        AIStreamReader::Format format;
        std::chrono::seconds timeout;
    };
    HttpAIProvider(const Dependencies& dependencies, const Traits& traits)
        : http_(dependencies.http),
          secrets_(dependencies.secrets),
          defaults_(dependencies.defaults),
          traits_(traits) {}

    /// The headers that carry the key; an error when there is none and one is needed.
    virtual Result<std::vector<HttpHeader>, AIError> authentication() const = 0;
    virtual std::string body(const AIRequest& request, const std::string& model, bool streams) const = 0;
    virtual std::optional<AIAnswer> parseReply(const std::string& body) const = 0;

    std::optional<std::string> apiKey() const;
    /// The address with the path; an error when the setting does not hold one that is allowed.
    Result<std::string, AIError> address(std::string_view path) const;
    bool hasDefaultAddress() const;
    AIError describe(const HttpError& error) const;

    HttpClient& http_;
    KeychainHelper& secrets_;
    UserDefaults& defaults_;
    const Traits traits_;

private:
    std::string model(const AIRequest& request) const { return request.model.value_or(modelName()); }
    Result<HttpRequest, AIError> chatRequest(const AIRequest& request, bool streams) const;
    AIError statusError(const HttpResponse& response, const std::string& model, std::string_view text) const;
};
} // namespace snipwren
