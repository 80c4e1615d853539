#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "ai/AIAnswerWriter.h"
#include "ai/AISuggestionEngine.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "platform/HeadsUpPanel.h"
#include "platform/Pasteboard.h"

namespace snipwren {
/// What the quick-action prompt shows.
struct AIPromptState {
    enum class Phase { closed, choosing, running };
    Phase phase = Phase::closed;
    std::vector<AIActionType> actions;
    std::size_t selected = 0;
    /// The free prompt as typed so far.
    std::string prompt;
    std::string selectedText;
    /// As much of the answer as has come.
    std::string answer;

    /// The chosen action, the free prompt filled in.
    AIActionType action() const;
    std::string label() const;
};

/// The quick-action prompt: opened by its shortcut with the selected text, steered by the keys that the tap holds back
/// for it, it asks the engine and puts the answer in the place of the selection. An answer that cannot be put there goes
/// to the clipboard. Main queue; reading the field, asking and writing happen on a queue of their own.
class AIPromptController {
public:
    static constexpr const char* directInputSetting = "isDirectInputAIEnabled";
    /// A prompt that nobody uses closes by itself, because it holds the keyboard.
    static constexpr std::chrono::seconds idleLimit{60};
    static constexpr std::size_t maxPromptCharacters = 2000;

    struct Dependencies {
        NotificationCenter& notifications;
        AISuggestionEngine& engine;
        AIAnswerWriter& writer;
        Pasteboard& pasteboard;
        HeadsUpPanel& headsUp;
        UserDefaults& defaults;
        SerialQueue& mainQueue;
        SerialQueue& worker;
        /// Tells the key tap whether the prompt's keys are held back.
        std::function<void(bool)> setPromptMode;
        /// The language that Translate aims at.
        std::string userLanguage;
    };

    explicit AIPromptController(Dependencies dependencies) : d_(std::move(dependencies)) {}
    /// Cancels what runs and waits for it.
    ~AIPromptController();

    /// Begins to listen for the prompt's notifications.
    void start();

    const AIPromptState& state() const { return state_; }
    /// Called on the main queue after every change. The heads-up panel shows the prompt in any case.
    void setObserver(std::function<void(const AIPromptState&)> observer) { observer_ = std::move(observer); }

private:
    struct Source {
        AISuggestionEngine::HarvestedContext context;
        std::optional<AIAnswerWriter::Target> target;
    };

    void open();
    void opened(const Source& source);
    void cycle(std::size_t by);
    void append(const std::string& characters);
    void deleteCharacter();
    void commit();
    void run();
    void finish(const Result<AISuggestion, AIError>& answer, const std::optional<std::string>& notWritten);
    void keepOnClipboard(const std::string& answer, const std::string& why);
    void close();
    void changed();
    void show(std::string title, std::string body);
    void restartIdleTimer();

    const Dependencies d_;
    AIPromptState state_;
    std::optional<Source> source_;
    /// Return came before the field was read.
    bool commitPending_ = false;
    /// Counts openings, so that what belongs to an earlier one is recognised.
    std::uint64_t generation_ = 0;
    std::stop_source stop_;
    std::optional<SerialQueue::TimerId> idleTimer_;
    std::function<void(const AIPromptState&)> observer_;
    std::vector<NotificationCenter::Subscription> subscriptions_;
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
} // namespace snipwren
