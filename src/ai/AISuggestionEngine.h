#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <span>
#include <string>

#include "ai/AIProvider.h"
#include "ai/AISuggestion.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"

namespace snipwren {
class FocusedField;
class Workspace;

/// Turns an action and a text into a prompt, asks the provider that the settings choose, and keeps recent answers.
/// Nothing that the privacy firewall refuses leaves the machine. The cache belongs to its queue; all else is thread safe,
/// and the calls that reach a provider block.
class AISuggestionEngine {
public:
    static constexpr const char* cacheQueueLabel = "com.snipwren.aiCacheQueue";
    static constexpr const char* providerSetting = "aiProvider";
    static constexpr const char* maxTokensSetting = "aiMaxTokens";
    static constexpr const char* enhancedContextSetting = "isEnhancedContextEnabled";
    static constexpr std::size_t maxCachedAnswers = 64;
    static constexpr std::size_t maxCachedBytes = 1024 * 1024;
    static constexpr std::size_t maxSurroundingText = 2000;

    /// What is known about the place that the text comes from. `bundleId` and `fieldType` serve the firewall only and
    /// never reach a prompt.
    struct HarvestedContext {
        std::optional<std::string> applicationName;
        std::optional<std::string> websiteDomain;
        std::optional<std::string> selectedText;
        std::optional<std::string> surroundingText;
        std::string bundleId;
        std::optional<std::string> fieldType;
    };

    struct Dependencies {
        /// In the order in which they are tried when no provider is chosen.
        std::span<AIProvider* const> providers;
        /// The privacy firewall's verdict on a text from an application and a kind of field.
        std::function<bool(const std::string& text, const std::string& bundleId,
                           const std::optional<std::string>& fieldType)>
            isSafeToProcess;
        FocusedField& fields;
        Workspace& workspace;
        UserDefaults& defaults;
        const Clock& clock;
        SerialQueue& cacheQueue;
    };
    /// What to ask for besides the text.
    struct Options {
        /// Instead of the setting.
        std::optional<std::string> provider;
        std::optional<std::string> model;
        std::optional<std::int64_t> maxTokens;
    };

    explicit AISuggestionEngine(const Dependencies& dependencies) : d_(dependencies) {}

    /// `context` is left out when it is not to be used.
    static std::string buildFinalPrompt(const AIActionType& action, const std::string& text,
                                        const HarvestedContext* context);
    /// Four characters are about one token.
    static std::size_t estimatedTokens(std::string_view text);

    /// Reads the focused field; every value that is not to be had is left out.
    HarvestedContext harvestContext() const;

    Result<AIProvider*, AIError> getActiveProvider(const std::optional<std::string>& chosen,
                                                   std::stop_token stop) const;
    std::span<AIProvider* const> providers() const { return d_.providers; }

    /// Asks for an answer and hands it on as it comes; a cached one comes in one piece.
    Result<AISuggestion, AIError> streamAIResponse(const AIActionType& action, const std::string& text,
                                                   const HarvestedContext& context, const Options& options,
                                                   const AIProvider::TextHandler& onText, std::stop_token stop);

    std::optional<std::string> getCachedResponse(const std::string& provider, const std::string& model,
                                                 const std::string& prompt) const;
    void setCachedResponse(const std::string& provider, const std::string& model, const std::string& prompt,
                           const std::string& answer);

    /// The model of the last answer; empty before the first.
    std::string activeModelName() const;
    std::uint64_t totalTokensUsed() const { return totalTokensUsed_; }
    void addTokensToStats(std::size_t tokens) { totalTokensUsed_ += tokens; }
    void resetTokenStats() { totalTokensUsed_ = 0; }

private:
    struct Cached {
        std::string provider, model, prompt, answer;
        std::size_t bytes() const { return provider.size() + model.size() + prompt.size() + answer.size(); }
    };
    bool maySend(const std::string& text, const HarvestedContext& context) const;

    const Dependencies d_;
    // On the cache queue; the newest answer first.
    mutable std::list<Cached> responseCache_;
    std::string activeModelName_;
    std::atomic<std::uint64_t> totalTokensUsed_ = 0;
};
} // namespace snipwren
