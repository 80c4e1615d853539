#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/Log.h"
#include "base/Result.h"
#include "capture/CaptureTarget.h"
#include "platform/HttpClient.h"
#include "targets/PickerFilter.h"

namespace snipwren {
class KeychainHelper;

/// `//slack`: posts the capture to a channel or user that is picked from those of the workspace. The server's answers are
/// data: bounded, and without control characters before they are shown. The token goes into the request's header and
/// nowhere else. Thread safe.
class SlackTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "slack";
    static constexpr CaptureTargetHint words{"SLACK TARGET SELECTION", "#channels or @contacts", "deployment is live!",
                                             "Filter target by typing (#channel or @user)..."};
    static constexpr const char* tokenOwner = "SnipwrenAI";
    static constexpr const char* tokenKey = "slackToken";
    static constexpr const char* defaultBaseUrl = "https://slack.com";
    /// Later the lists are fetched again: channels come and go.
    static constexpr Duration cacheLifetime = std::chrono::minutes(30);
    static constexpr std::chrono::seconds requestTimeout{60};
    /// A message that was cut off is still posted this long after Return; later it would surprise its readers.
    static constexpr Duration staysCurrent = std::chrono::minutes(10);

    struct Dependencies {
        HttpClient& http;
        KeychainHelper& secrets;
        const Clock& clock;
        Log& log;
        /// Another address is for tests only.
        std::string baseUrl = defaultBaseUrl;
    };
    explicit SlackTarget(Dependencies dependencies) : to_(std::move(dependencies)) {}

    /// The service's address. Automated runs (SW_TEST_MODE is "1") may name a server of this computer in
    /// SNIPWREN_SLACK_URL: the token must not go anywhere else.
    static std::string baseUrlFromEnvironment();

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    std::optional<std::string> readiness() const override;
    CaptureFailureGuide failureGuide(std::string_view detail) const override;
    bool needsPicker() const override { return true; }
    /// Channels first, then users; from the cache when it is loaded.
    std::vector<PickerOption> pickerOptions(std::stop_token stop) override;
    std::vector<PickerOption> filteredOptions(const std::string& query) const override;
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    std::chrono::seconds patience() const override { return requestTimeout + std::chrono::seconds(10); }
    bool deliversAfter(Duration age) const override { return age <= staysCurrent; }

    void resetCache();
    /// Fills the cache without a network.
    void injectMockData(std::vector<PickerOption> channels, std::vector<PickerOption> users);

private:
    /// Why a request failed, for the user; `missingScope` names the permission that the token lacks.
    struct Failure {
        std::string description;
        std::string missingScope;
    };
    using Options = std::vector<PickerOption>;
    enum class Kind { channels, users };

    Result<std::string, Failure> token() const;
    HttpRequest request(const std::string& method, const std::string& pathAndQuery, const std::string& token) const;
    Result<Options, Failure> fetchAllPages(const std::string& pathAndQuery, const std::string& token, Kind kind,
                                           const std::stop_token& stop) const;
    void store(Options channels, Options users, bool complete);

    const Dependencies to_;
    const std::string commandName_ = word;
    mutable std::mutex mutex_;
    Options cachedChannels_;
    Options cachedUsers_;
    bool hasLoadedCache_ = false;
    TimePoint cacheLoadedAt_;
    PickerFilter filter_;
};
} // namespace snipwren
