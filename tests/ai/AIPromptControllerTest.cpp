#include "ai/AIPromptController.h"

#include <array>

#include <gtest/gtest.h>

#include "ai/UserLanguage.h"
#include "hosts/virtual/VirtualPasteboard.h"
#include "support/CaptureRig.h"
#include "support/FakeAIProvider.h"
#include "support/FakeField.h"
#include "support/RecordingHeadsUpPanel.h"

namespace snipwren {
namespace {
using Phase = AIPromptState::Phase;

/// Real keys on the virtual desktop, through the real tap manager, to the prompt and back into the field.
class AIPromptControllerTest : public testing::Test {
protected:
    CaptureRig rig;
    FakeAIProvider provider{"ollama"};
    std::array<AIProvider*, 1> providers{&provider};
    ManualQueue cacheQueue{"cache", rig.clock}, worker{"worker", rig.clock};
    AISuggestionEngine engine{{providers,
                               [](const std::string& text, const std::string&, const std::optional<std::string>&) {
                                   return text.find("secret") == std::string::npos;
                               },
                               rig.desktop, rig.desktop, rig.defaults, rig.clock, cacheQueue}};
    AIAnswerWriter writer{{rig.desktop, rig.desktop, rig.log, [this](std::chrono::milliseconds) { ++pauses; }}};
    VirtualPasteboard pasteboard;
    RecordingHeadsUpPanel headsUp;
    int pauses = 0;
    AIPromptController controller{{rig.notifications, engine, writer, pasteboard, headsUp, rig.defaults, rig.queue,
                                   worker,
                                   [this](bool on) {
                                       rig.tap->isAIPromptMode = on;
                                       rig.tap->interestChanged();
                                   },
                                   "German"}};

    void SetUp() override { controller.start(); }
    void settle() {
        do rig.settle();
        while (worker.runReady() > 0 || cacheQueue.runReady() > 0);
    }
    void press(int code, const char* characters = "") {
        KeyEvent event;
        event.keyCode = code;
        event.characters = characters;
        rig.desktop.press(event);
        settle();
    }
    void open() {
        KeyEvent event;
        event.keyCode = keycode::space;
        event.characters = " ";
        event.modifiers = {.control = true, .shift = true};
        rig.desktop.press(event);
        settle();
    }
    VirtualDesktop::FieldId field(VirtualFieldKind kind, const std::string& text, Utf16Range selection) {
        const auto made = rig.desktop.addField("com.example.app", kind, "Field");
        rig.desktop.with(made, [&](VirtualField& f) {
            f.setText(text);
            f.select(selection);
        });
        rig.desktop.focus(made);
        return made;
    }
    std::string clipboard() const { return pasteboard.string().value_or(""); }
    std::string notice() const { return headsUp.notices.empty() ? "" : headsUp.notices.back().body; }
};

TEST_F(AIPromptControllerTest, ReplacesTheSelectionByAVerifiedWrite) {
    const auto id = field(VirtualFieldKind::plain, "Grüße 😀 hey there!", {9, 3});
    provider.answer.text = "good day";
    open();
    EXPECT_EQ(controller.state().phase, Phase::choosing);
    EXPECT_EQ(controller.state().selectedText, "hey");
    EXPECT_EQ(controller.state().label(), "Rewrite (Professional)");
    press(keycode::rightArrow);
    EXPECT_EQ(headsUp.notices.back().title, "Rewrite (Casual)");
    press(keycode::returnKey);
    EXPECT_EQ(rig.desktop.text(id), "Grüße 😀 good day there!");
    EXPECT_TRUE(rig.logged("✅ AI Direct AX write verified successfully: '(8 characters)'"));
    EXPECT_EQ(provider.requests.at(0).prompt,
              AISuggestionEngine::buildFinalPrompt(AIActionType::rewrite("Casual"), "hey", nullptr));
    EXPECT_EQ(controller.state().phase, Phase::closed);
    EXPECT_EQ(clipboard(), "");
    rig.type("!");
    EXPECT_EQ(rig.desktop.text(id), "Grüße 😀 good day! there!") << "the keyboard is the program's again";
}

TEST_F(AIPromptControllerTest, CyclesTypesAndCancels) {
    const auto id = field(VirtualFieldKind::plain, "text", {0, 4});
    open();
    std::vector<std::string> labels;
    for (int i = 0; i < 6; ++i) {
        labels.push_back(controller.state().label());
        press(keycode::rightArrow);
    }
    EXPECT_EQ(labels, (std::vector<std::string>{"Rewrite (Professional)", "Rewrite (Casual)", "Summarize", "Explain",
                                                "Translate (German)", "Prompt"}));
    press(keycode::leftArrow);
    EXPECT_EQ(controller.state().label(), "Prompt");
    press(keycode::leftArrow);
    rig.type("Make it rhyme é");
    press(keycode::deleteKey);
    press(keycode::deleteKey);
    EXPECT_EQ(controller.state().label(), "Prompt: Make it rhyme");
    press(keycode::returnKey);
    EXPECT_EQ(provider.requests.at(0).prompt,
              AISuggestionEngine::buildFinalPrompt(AIActionType::custom("Make it rhyme"), "text", nullptr));
    EXPECT_EQ(rig.desktop.text(id), "the answer");

    open();
    rig.type("abc");
    press(keycode::escape);
    EXPECT_EQ(controller.state().phase, Phase::closed);
    open();
    rig.queue.advance(AIPromptController::idleLimit);
    EXPECT_EQ(controller.state().phase, Phase::closed) << "a forgotten prompt gives the keyboard back";
    EXPECT_EQ(rig.desktop.text(id), "the answer");
}

TEST_F(AIPromptControllerTest, ShowsTheAnswerAsItComesAndEscapeStopsIt) {
    const auto id = field(VirtualFieldKind::plain, "text", {0, 4});
    open();
    provider.midway = [&] {
        rig.settle();
        EXPECT_EQ(controller.state().answer, "the a");
        EXPECT_EQ(notice(), "the a");
        KeyEvent escape;
        escape.keyCode = keycode::escape;
        rig.desktop.press(escape);
        rig.settle();
    };
    press(keycode::returnKey);
    EXPECT_EQ(controller.state().phase, Phase::closed);
    EXPECT_EQ(rig.desktop.text(id), "text");
    EXPECT_EQ(clipboard(), "");
}

TEST_F(AIPromptControllerTest, NeverLosesTheAnswerOrTheText) {
    struct Row {
        const char* name;
        VirtualFieldKind kind;
        const char* answer;
        const char* text;
        const char* clipboard;
        const char* said;
    };
    const Row rows[] = {
        {"refuses edits", VirtualFieldKind::structured, "answer", "say answer now", "", ""},
        {"claims edits", VirtualFieldKind::lying, "answer", "say answer now", "", ""},
        {"several lines by keys", VirtualFieldKind::structured, "a\nb", "say text now", "a\nb",
         "The answer has several lines, and typing them could send or submit what you wrote."},
        {"several lines by a write", VirtualFieldKind::multiline, "a\nb", "say a\nb now", "", ""},
    };
    for (const Row& row : rows) {
        const auto id = field(row.kind, "say text now", {4, 4});
        pasteboard.clear();
        provider.answer.text = row.answer;
        open();
        rig.type(row.name); // Another prompt each time, past the cache.
        press(keycode::returnKey);
        EXPECT_EQ(rig.desktop.text(id), row.text) << row.name;
        EXPECT_EQ(clipboard(), row.clipboard) << row.name;
        if (*row.said) {
            EXPECT_EQ(notice(), row.said) << row.name;
        }
    }
    EXPECT_TRUE(rig.logged("Using synthetic keystroke insertion for AI: '(6 characters)'"));
    EXPECT_FALSE(rig.logged("AI: 'a\nb'"));
}

TEST_F(AIPromptControllerTest, WritesOnlyWhereItWasAsked) {
    const std::function<void(VirtualDesktop::FieldId)> changes[] = {
        [&](auto id) { rig.desktop.with(id, [](VirtualField& f) { f.insert("typed"); }); },
        [&](auto id) { rig.desktop.with(id, [](VirtualField& f) {
                           f.select({0, 3});
                       }); },
        [&](auto) { rig.desktop.focus(rig.field); },
        [&](auto) { rig.desktop.focus(rig.desktop.addField("com.example.app", VirtualFieldKind::hanging)); },
    };
    for (std::size_t row = 0; row < std::size(changes); ++row) {
        const auto id = field(VirtualFieldKind::plain, "say text now", {4, 4});
        pasteboard.clear();
        std::string changed;
        provider.midway = [&] {
            changes[row](id);
            changed = rig.desktop.text(id);
        };
        open();
        rig.type("prompt " + std::to_string(row)); // Past the cache, which would answer without a moment in between.
        press(keycode::returnKey);
        EXPECT_EQ(rig.desktop.text(id), changed) << row;
        EXPECT_EQ(clipboard(), "the answer") << row;
        EXPECT_EQ(notice(), "The text field changed while the answer was being written.") << row;
    }
}

TEST_F(AIPromptControllerTest, NeverWritesTwice) {
    const std::tuple<const char*, EditOutcome, const char*, std::size_t> rows[] = {
        {"in doubt", EditOutcome::unknown, "say text now", 0},
        {"altered by the program", EditOutcome::applied, "say ANSWER now", 0},
        {"done although it was not confirmed", EditOutcome::unknown, "say answer now", 0},
        {"refused", EditOutcome::refused, "say text now", 1},
    };
    for (const auto& [name, outcome, after, typed] : rows) {
        FakeFocusedField fields;
        auto element = std::make_shared<FakeFieldElement>();
        fields.element = element;
        element->text = "say text now";
        element->selection = {4, 4};
        element->onReplace = [&element, text = after, answer = outcome](const Utf16Range&, const std::string&) {
            element->text = text;
            return answer;
        };
        const auto keys = field(VirtualFieldKind::plain, "", {}); // Where synthetic keys would arrive.
        const AIAnswerWriter careful({fields, rig.desktop, rig.log, [](std::chrono::milliseconds) {}});
        const auto failure = careful.write(*careful.capture(), "answer");
        EXPECT_EQ(failure.has_value(), std::string_view(after) != "say answer now") << name;
        EXPECT_EQ(rig.desktop.text(keys).empty(), typed == 0) << name;
    }
}

TEST_F(AIPromptControllerTest, KeepsOutOfSecretsAndUnreadableFields) {
    auto id = field(VirtualFieldKind::plain, "my secret", {0, 9});
    open();
    press(keycode::returnKey);
    EXPECT_EQ(headsUp.notices.back().title, "The AI could not answer");
    EXPECT_TRUE(provider.requests.empty());
    EXPECT_EQ(rig.desktop.text(id), "my secret");

    field(VirtualFieldKind::inaccessible, "", {});
    open();
    rig.type("a joke");
    press(keycode::returnKey);
    EXPECT_EQ(clipboard(), "the answer");
    EXPECT_EQ(notice(), "This program does not let Snipwren write into it.");

    (void)rig.defaults.set(AIPromptController::directInputSetting, false);
    id = field(VirtualFieldKind::plain, "text", {0, 4});
    pasteboard.clear();
    open();
    press(keycode::returnKey);
    EXPECT_EQ(rig.desktop.text(id), "text");
    EXPECT_EQ(clipboard(), "the answer");
    (void)rig.defaults.set(AIPromptController::directInputSetting, true);
    provider.answer.isCutOff = true;
    pasteboard.setRefuses(true);
    open();
    rig.type("more");
    press(keycode::returnKey);
    EXPECT_EQ(rig.desktop.text(id), "text");
    EXPECT_NE(notice().find("The answer: the answer"), std::string::npos) << notice();
}

TEST_F(AIPromptControllerTest, KeepsKeysFromTheProgramBeforeItHasReadTheField) {
    const auto id = field(VirtualFieldKind::plain, "text", {0, 4});
    KeyEvent shortcut;
    shortcut.keyCode = keycode::space;
    shortcut.modifiers = {.control = true, .shift = true};
    rig.desktop.press(shortcut);
    rig.settle(); // The worker has not looked at the field yet.
    rig.type("sum up\n");
    EXPECT_EQ(rig.desktop.text(id), "text");
    EXPECT_EQ(controller.state().prompt, "sum up");
    settle();
    EXPECT_EQ(rig.desktop.text(id), "the answer") << "Return was remembered";
}

TEST(UserLanguage, NamesTheLocalesLanguageInEnglish) {
    EXPECT_EQ(languageName("de_DE"), "German");
    EXPECT_EQ(languageName("pt_BR"), "Portuguese");
    EXPECT_EQ(languageName("C"), "English");
    EXPECT_EQ(languageName(""), "English");
}
} // namespace
} // namespace snipwren
