#include "ai/AISuggestionEngine.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/Text.h"
#include "platform/FocusedField.h"
#include "platform/Workspace.h"

namespace snipwren {
namespace {
/// A heading over text of the user's, set off so that the model takes it for data.
std::string block(std::string_view heading, std::string_view text) {
    return fmt::format("{}\n\"\"\"\n{}\n\"\"\"", heading, text);
}

/// At most `characters` code points around a UTF-16 position.
std::string around(const std::string& text, std::size_t utf16Position, std::size_t characters) {
    const std::u16string units = toUtf16(text);
    const std::size_t position = std::min(utf16Position, units.size());
    const std::size_t from = position - std::min(position, characters / 2);
    std::u16string piece = units.substr(from, characters);
    const auto isLow = [](char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; };
    if (!piece.empty() && isLow(piece.front())) piece.erase(0, 1);
    if (!piece.empty() && piece.back() >= 0xD800 && piece.back() < 0xDC00) piece.pop_back();
    return toUtf8(piece);
}
} // namespace

std::string AISuggestionEngine::buildFinalPrompt(const AIActionType& action, const std::string& text,
                                                 const HarvestedContext* context) {
    std::string prompt;
    if (context) {
        std::string parts;
        if (context->applicationName) parts = "App: " + *context->applicationName;
        if (context->websiteDomain) parts += (parts.empty() ? "Website: " : ", Website: ") + *context->websiteDomain;
        if (!parts.empty()) prompt += "Environment Context [" + parts + "]\n";
        if (context->selectedText && !context->selectedText->empty())
            prompt += block("Selected Text Context:", *context->selectedText) + "\n\n";
        else if (context->surroundingText && !context->surroundingText->empty())
            prompt += block("Surrounding Text Context:", *context->surroundingText) + "\n\n";
    }
    return prompt + "Instructions:\n" + action.instruction() + "\n\n" + block("Text/Query:", text);
}

std::size_t AISuggestionEngine::estimatedTokens(std::string_view text) { return (codePointCount(text) + 3) / 4; }

AISuggestionEngine::HarvestedContext AISuggestionEngine::harvestContext() const {
    HarvestedContext context;
    if (const auto application = d_.workspace.frontmostApplication()) {
        context.bundleId = application->bundleId;
        if (!application->name.empty()) context.applicationName = application->name;
    }
    const auto element = d_.fields.focusedElement();
    if (!element) return context;
    if (const auto field = element->describe()) {
        context.fieldType = field->isSecure ? "AXSecureTextField" : field->role;
        // The content of a password field is not even read.
        if (field->isSecure) return context;
    }
    context.selectedText = element->selectedText();
    if (context.selectedText && !context.selectedText->empty()) return context;
    const auto range = element->selectedRange();
    if (const auto value = element->value(); value && !value->empty())
        context.surroundingText = around(*value, range ? range->start : 0, maxSurroundingText);
    return context;
}

Result<AIProvider*, AIError> AISuggestionEngine::getActiveProvider(const std::optional<std::string>& chosen,
                                                                   std::stop_token stop) const {
    const std::string wanted =
        asciiLowercased(trimmed(chosen ? *chosen : d_.defaults.string(providerSetting).value_or("")));
    if (!wanted.empty()) {
        for (AIProvider* const provider : d_.providers)
            if (provider->identifier() == wanted) return provider;
        return unexpected(
            AIError{AIErrorKind::badSetting,
                    fmt::format("There is no AI provider \"{}\". Try: ollama, anthropic or openai", wanted)});
    }
    for (AIProvider* const provider : d_.providers) {
        if (!provider->whyUnusable(stop)) return provider;
        if (stop.stop_requested()) return unexpected(AIError{AIErrorKind::cancelled, "The request was cancelled."});
    }
    return unexpected(AIError{AIErrorKind::missingKey,
                              "No AI provider is ready. Start Ollama, or add an API key for Anthropic or OpenAI."});
}

bool AISuggestionEngine::maySend(const std::string& text, const HarvestedContext& context) const {
    return d_.isSafeToProcess(text, context.bundleId, context.fieldType);
}

Result<AISuggestion, AIError> AISuggestionEngine::streamAIResponse(const AIActionType& action, const std::string& text,
                                                                   const HarvestedContext& context,
                                                                   const Options& options,
                                                                   const AIProvider::TextHandler& onText,
                                                                   std::stop_token stop) {
    if (trimmed(text).empty() && (action.kind != AIActionType::Kind::custom || trimmed(action.value).empty()))
        return unexpected(AIError{AIErrorKind::nothingToDo, "There is no text to work on. Select some text first."});
    const bool enhanced = d_.defaults.boolean(enhancedContextSetting).value_or(false);
    const std::string prompt = buildFinalPrompt(action, text, enhanced ? &context : nullptr);
    // The whole prompt is examined, so that nothing harvested slips through beside the text.
    if (!maySend(text, context) || !maySend(prompt, context))
        return unexpected(AIError{AIErrorKind::refusedByPrivacy,
                                  "Snipwren did not send this text, because it may hold a password, a key or a card "
                                  "number, or comes from an application that is excluded."});

    const auto provider = getActiveProvider(options.provider, stop);
    if (!provider) return unexpected(provider.error());
    AIRequest request;
    request.prompt = prompt;
    request.model = options.model;
    request.maxTokens = static_cast<int>(std::clamp<std::int64_t>(
        options.maxTokens ? *options.maxTokens
                          : d_.defaults.integer(maxTokensSetting).value_or(AIRequest::defaultMaxTokens),
        1, 100'000));

    AISuggestion suggestion;
    suggestion.provider = (*provider)->identifier();
    suggestion.model = options.model.value_or((*provider)->modelName());
    suggestion.originalPrompt = prompt;
    suggestion.actionType = action;
    if (const auto cached = getCachedResponse(suggestion.provider, suggestion.model, prompt)) {
        suggestion.text = *cached;
        suggestion.fromCache = true;
        if (onText) onText(suggestion.text);
    } else {
        auto answer = (*provider)->stream(request, onText, stop);
        if (!answer) return unexpected(answer.error());
        if (trimmed(answer->text).empty())
            return unexpected(AIError{AIErrorKind::badResponse, "The answer was empty. Try again."});
        suggestion.text = std::move(answer->text);
        suggestion.isCutOff = answer->isCutOff;
        if (!suggestion.isCutOff) setCachedResponse(suggestion.provider, suggestion.model, prompt, suggestion.text);
    }
    suggestion.estimatedTokens = estimatedTokens(prompt) + estimatedTokens(suggestion.text);
    suggestion.timestamp = d_.clock.now();
    if (!suggestion.fromCache) addTokensToStats(suggestion.estimatedTokens);
    d_.cacheQueue.sync([&] { activeModelName_ = suggestion.model; });
    return suggestion;
}

std::optional<std::string> AISuggestionEngine::getCachedResponse(const std::string& provider, const std::string& model,
                                                                 const std::string& prompt) const {
    return d_.cacheQueue.call([&]() -> std::optional<std::string> {
        const auto found = std::find_if(responseCache_.begin(), responseCache_.end(), [&](const Cached& cached) {
            return cached.prompt == prompt && cached.model == model && cached.provider == provider;
        });
        if (found == responseCache_.end()) return std::nullopt;
        responseCache_.splice(responseCache_.begin(), responseCache_, found);
        return responseCache_.front().answer;
    });
}

void AISuggestionEngine::setCachedResponse(const std::string& provider, const std::string& model,
                                           const std::string& prompt, const std::string& answer) {
    d_.cacheQueue.sync([&] {
        responseCache_.remove_if([&](const Cached& cached) {
            return cached.prompt == prompt && cached.model == model && cached.provider == provider;
        });
        responseCache_.push_front({provider, model, prompt, answer});
        std::size_t kept = 0, bytes = 0;
        for (auto entry = responseCache_.begin(); entry != responseCache_.end(); ++entry) {
            bytes += entry->bytes();
            if (++kept <= maxCachedAnswers && bytes <= maxCachedBytes) continue;
            responseCache_.erase(entry, responseCache_.end());
            break;
        }
    });
}

std::string AISuggestionEngine::activeModelName() const {
    return d_.cacheQueue.call([&] { return activeModelName_; });
}
} // namespace snipwren
