#include "ai/AIPromptController.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
namespace {
constexpr const char* symbol = "sparkles";
constexpr const char* keyHint = "← → chooses, typing asks for something else, Return runs it, Escape closes";
constexpr std::size_t shownAnswerBytes = 400;

/// The end of a long text, whole characters.
std::string tail(const std::string& text) {
    if (text.size() <= shownAnswerBytes) return text;
    std::size_t from = text.size() - shownAnswerBytes;
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) ++from;
    return "…" + text.substr(from);
}
} // namespace

AIActionType AIPromptState::action() const {
    AIActionType chosen = actions.at(selected);
    if (chosen.kind == AIActionType::Kind::custom) chosen.value = std::string(trimmed(prompt));
    return chosen;
}

std::string AIPromptState::label() const {
    const AIActionType& chosen = actions.at(selected);
    return chosen.kind == AIActionType::Kind::custom && prompt.empty() ? "Prompt" : action().label();
}

AIPromptController::~AIPromptController() {
    stop_.request_stop();
    if (!subscriptions_.empty()) d_.worker.sync([] {}); // A queue that was never started would wait for ever.
    subscriptions_.clear();
    if (idleTimer_) d_.mainQueue.cancel(*idleTimer_);
    if (state_.phase != AIPromptState::Phase::closed) d_.setPromptMode(false);
}

void AIPromptController::start() {
    const auto on = [this](const char* name, std::function<void(const UserInfo&)> action) {
        subscriptions_.push_back(d_.notifications.observe(name, std::move(action)));
    };
    on("TriggerAIQuickActions", [this](const UserInfo&) { open(); });
    on("CycleAIActionLeft", [this](const UserInfo&) { cycle(state_.actions.size() - 1); });
    on("CycleAIActionRight", [this](const UserInfo&) { cycle(1); });
    on("DeleteAIPromptChar", [this](const UserInfo&) { deleteCharacter(); });
    on("AppendAIPromptChar", [this](const UserInfo& info) { append(text(info, "characters")); });
    on("CommitAIPrompt", [this](const UserInfo&) { commit(); });
    on("CancelAIPrompt", [this](const UserInfo&) { close(); });
}

void AIPromptController::open() {
    if (state_.phase == AIPromptState::Phase::running) return;
    if (state_.phase == AIPromptState::Phase::choosing) return close();
    ++generation_;
    stop_ = std::stop_source();
    state_ = {AIPromptState::Phase::choosing, AIActionType::quickActions(d_.userLanguage), 0, {}, {}, {}};
    source_.reset();
    commitPending_ = false;
    // From this moment on, before the field has been read, so that no key of the prompt reaches the program behind it.
    d_.setPromptMode(true);
    changed();
    d_.worker.async([this, generation = generation_, alive = std::weak_ptr<bool>(alive_)] {
        Source source{d_.engine.harvestContext(), d_.writer.capture()};
        d_.mainQueue.async([this, generation, alive, source = std::move(source)] {
            if (alive.lock() && generation == generation_ && state_.phase == AIPromptState::Phase::choosing)
                opened(source);
        });
    });
}

void AIPromptController::opened(const Source& source) {
    source_ = source;
    state_.selectedText = source.target ? source.target->selectedText : source.context.selectedText.value_or("");
    changed();
    if (commitPending_) run();
}

void AIPromptController::cycle(std::size_t by) {
    if (state_.phase != AIPromptState::Phase::choosing) return;
    state_.selected = (state_.selected + by) % state_.actions.size();
    changed();
}

void AIPromptController::append(const std::string& characters) {
    if (state_.phase != AIPromptState::Phase::choosing) return;
    for (std::size_t offset = 0; offset < characters.size();) {
        const char32_t scalar = nextScalar(characters, offset);
        if (scalar >= 0x20 && scalar != 0x7F && codePointCount(state_.prompt) < maxPromptCharacters)
            appendUtf8(state_.prompt, scalar);
    }
    state_.selected = state_.actions.size() - 1;
    changed();
}

void AIPromptController::deleteCharacter() {
    if (state_.phase != AIPromptState::Phase::choosing || state_.prompt.empty()) return;
    state_.prompt.resize(lastCharacterStart(state_.prompt));
    changed();
}

void AIPromptController::commit() {
    if (state_.phase != AIPromptState::Phase::choosing) return;
    if (source_)
        run();
    else
        commitPending_ = true;
}

void AIPromptController::run() {
    state_.phase = AIPromptState::Phase::running;
    changed();
    const bool mayInsert = d_.defaults.boolean(directInputSetting).value_or(true);
    const auto weak = std::weak_ptr<bool>(alive_);
    d_.worker.async([this, weak, mayInsert, generation = generation_, action = state_.action(),
                     text = state_.selectedText, source = *source_, stop = stop_.get_token()] {
        const auto post = [&](std::function<void()> task) {
            d_.mainQueue.async([this, weak, generation, task = std::move(task)] {
                if (weak.lock() && generation == generation_) task();
            });
        };
        auto answer = d_.engine.streamAIResponse(
            action, text, source.context, {},
            [&](std::string_view piece) {
                post([this, piece = std::string(piece)] {
                    state_.answer += piece;
                    changed();
                });
            },
            stop);
        std::optional<std::string> notWritten;
        if (answer) {
            if (answer->isCutOff)
                notWritten = "The answer reached the length limit and lacks its end.";
            else if (!mayInsert)
                notWritten = "Writing answers into other programs is switched off.";
            else if (!source.target)
                notWritten = "This program does not let Snipwren write into it.";
            else if (stop.stop_requested())
                return;
            else
                notWritten = d_.writer.write(*source.target, answer->text);
        }
        post([this, answer = std::move(answer), notWritten = std::move(notWritten)] { finish(answer, notWritten); });
    });
}

void AIPromptController::finish(const Result<AISuggestion, AIError>& answer,
                                const std::optional<std::string>& notWritten) {
    close();
    if (!answer && answer.error().kind != AIErrorKind::cancelled)
        show("The AI could not answer", answer.error().description);
    if (answer && notWritten) keepOnClipboard(answer->text, *notWritten);
}

void AIPromptController::keepOnClipboard(const std::string& answer, const std::string& why) {
    d_.pasteboard.clear();
    if (d_.pasteboard.setString(answer))
        show("The answer is on the clipboard", why);
    else
        show("The answer could not be kept", why + " The clipboard refused it, too. The answer: " + answer);
}

void AIPromptController::close() {
    if (state_.phase == AIPromptState::Phase::closed) return;
    stop_.request_stop();
    ++generation_;
    state_ = {};
    source_.reset();
    commitPending_ = false;
    d_.setPromptMode(false);
    changed();
}

void AIPromptController::changed() {
    restartIdleTimer();
    using Phase = AIPromptState::Phase;
    if (state_.phase == Phase::choosing)
        show(state_.label(), state_.selectedText.empty() ? keyHint : tail(state_.selectedText));
    if (state_.phase == Phase::running) show(state_.label(), tail(state_.answer));
    if (observer_) observer_(state_);
}

void AIPromptController::show(std::string title, std::string body) {
    d_.headsUp.show({std::move(title), std::move(body), symbol});
}

void AIPromptController::restartIdleTimer() {
    if (idleTimer_) d_.mainQueue.cancel(*idleTimer_);
    idleTimer_.reset();
    if (state_.phase != AIPromptState::Phase::choosing) return;
    idleTimer_ = d_.mainQueue.asyncAfter(idleLimit, [this, alive = std::weak_ptr<bool>(alive_)] {
        if (alive.lock()) close();
    });
}
} // namespace snipwren
