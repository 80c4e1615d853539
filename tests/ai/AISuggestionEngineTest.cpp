#include "ai/AISuggestionEngine.h"

#include <array>

#include <gtest/gtest.h>

#include "ai/AIRig.h"
#include "support/FakeAIProvider.h"
#include "support/FakeDesktop.h"
#include "support/FakeField.h"

namespace snipwren {
namespace {
using Context = AISuggestionEngine::HarvestedContext;

TEST(AIActionType, DescribesAndEncodesEveryKind) {
    const std::tuple<AIActionType, const char*, const char*, const char*> rows[] = {
        {AIActionType::rewrite("Professional"), "Rewrite (Professional)", "pencil.and.outline",
         R"({"rewrite":{"style":"Professional"}})"},
        {AIActionType::translate("Deutsch"), "Translate (Deutsch)", "character.book.closed",
         R"({"translate":{"lang":"Deutsch"}})"},
        {AIActionType::custom("Be \"brief\""), "Prompt: Be \"brief\"", "sparkles",
         R"({"custom":{"prompt":"Be \"brief\""}})"},
        {AIActionType::explain(), "Explain", "questionmark.circle", R"({"explain":{}})"},
        {AIActionType::summarize(), "Summarize", "doc.text", R"({"summarize":{}})"},
    };
    for (const auto& [action, label, icon, json] : rows) {
        EXPECT_EQ(action.label(), label);
        EXPECT_EQ(action.icon(), icon);
        EXPECT_EQ(action.encoded(), json);
        EXPECT_EQ(AIActionType::decoded(json), action);
    }
    for (const char* bad : {"", "[]", "{}", R"({"rewrite":{}})", R"({"rewrite":{"style":1}})", R"({"explain":null})",
                            R"({"sing":{}})", R"({"explain":{},"summarize":{}})"})
        EXPECT_EQ(AIActionType::decoded(bad), std::nullopt) << bad;
}

TEST(AISuggestionEngine, BuildsThePromptByteForByte) {
    const std::string ask = "Instructions:\nDo it\n\nText/Query:\n\"\"\"\nhello\n\"\"\"";
    const std::tuple<const char*, std::optional<Context>, std::string> rows[] = {
        {"no context", std::nullopt, ask},
        {"nothing known", Context{}, ask},
        {"all", Context{"Editor", "example.com", "sel", "around", {}, {}},
         "Environment Context [App: Editor, Website: example.com]\nSelected Text Context:\n\"\"\"\nsel\n\"\"\"\n\n"
             + ask},
        {"app only", Context{"Editor", {}, {}, {}, {}, {}}, "Environment Context [App: Editor]\n" + ask},
        {"site only", Context{{}, "example.com", {}, {}, {}, {}}, "Environment Context [Website: example.com]\n" + ask},
        {"surroundings", Context{{}, {}, "", "a\nb", {}, {}},
         "Surrounding Text Context:\n\"\"\"\na\nb\n\"\"\"\n\n" + ask},
    };
    for (const auto& [name, context, want] : rows)
        EXPECT_EQ(
            AISuggestionEngine::buildFinalPrompt(AIActionType::custom("Do it"), "hello", context ? &*context : nullptr),
            want)
            << name;
    EXPECT_EQ(AISuggestionEngine::buildFinalPrompt(AIActionType::rewrite("Casual"), "x", nullptr),
              "Instructions:\nPlease rewrite the following text to sound extremely Casual. Preserve the original core "
              "intent, but format nicely. Reply ONLY with the rewritten text and nothing else (no conversational "
              "filler).\n\nText/Query:\n\"\"\"\nx\n\"\"\"");
}

class AISuggestionEngineTest : public testing::Test, protected AIRig {
protected:
    FakeAIProvider local{"ollama"}, cloud{"anthropic"};
    std::array<AIProvider*, 2> providers{&local, &cloud};
    ManualQueue cacheQueue{AISuggestionEngine::cacheQueueLabel, clock};
    FakeFocusedField fields;
    FakeWorkspace workspace;
    std::string refused = "secret";
    std::string excluded = "com.vault";
    AISuggestionEngine engine{
        {providers,
         [this](const std::string& text, const std::string& app, const std::optional<std::string>& fieldType) {
             return text.find(refused) == std::string::npos && app != excluded
                    && fieldType.value_or("").find("Secure") == std::string::npos;
         },
         fields, workspace, defaults, clock, cacheQueue}};

    Result<AISuggestion, AIError> ask(const std::string& text, const Context& context = {},
                                      const AISuggestionEngine::Options& options = {}) {
        return engine.streamAIResponse(AIActionType::explain(), text, context, options, {}, {});
    }
};

TEST_F(AISuggestionEngineTest, ChoosesTheProvider) {
    const auto chosen = [&](const std::optional<std::string>& wanted) {
        const auto provider = engine.getActiveProvider(wanted, {});
        return provider ? (*provider)->identifier() : provider.error().description;
    };
    EXPECT_EQ(chosen({}), "ollama");
    local.unusable = true;
    EXPECT_EQ(chosen({}), "anthropic");
    EXPECT_EQ(chosen("Ollama"), "ollama") << "a provider that was asked for is not replaced by another";
    (void)defaults.set("aiProvider", "openai");
    EXPECT_EQ(chosen({}), "There is no AI provider \"openai\". Try: ollama, anthropic or openai");
    (void)defaults.set("aiProvider", "");
    cloud.unusable = true;
    EXPECT_EQ(chosen({}), "No AI provider is ready. Start Ollama, or add an API key for Anthropic or OpenAI.");
}

TEST_F(AISuggestionEngineTest, KeepsAnswersPerProviderModelAndPrompt) {
    local.answer.text = "first";
    ASSERT_EQ(ask("hello")->text, "first");
    local.answer.text = "second";
    const auto again = ask("hello");
    EXPECT_EQ(again->text, "first");
    EXPECT_TRUE(again->fromCache);
    EXPECT_EQ(ask("hello", {}, {{}, "other-model", {}})->text, "second");
    EXPECT_EQ(ask("hello", {}, {"anthropic", {}, {}})->provider, "anthropic");
    EXPECT_EQ(local.requests.size(), 2u);
    EXPECT_EQ(engine.activeModelName(), "anthropic-model");

    local.answer.isCutOff = true;
    EXPECT_TRUE(ask("long")->isCutOff);
    EXPECT_FALSE(ask("long")->fromCache) << "half an answer is not kept";

    for (std::size_t i = 0; i <= AISuggestionEngine::maxCachedAnswers; ++i)
        engine.setCachedResponse("p", "m", std::to_string(i), "a");
    EXPECT_EQ(engine.getCachedResponse("p", "m", "0"), std::nullopt);
    EXPECT_EQ(engine.getCachedResponse("p", "m", "1"), "a");
    engine.setCachedResponse("p", "m", "big", std::string(AISuggestionEngine::maxCachedBytes + 1, 'x'));
    EXPECT_EQ(engine.getCachedResponse("p", "m", "big"), std::nullopt);
}

TEST_F(AISuggestionEngineTest, CountsTokensOfAnswersThatCost) {
    local.answer.text = "12345678";
    const auto answer = ask("hello");
    EXPECT_EQ(answer->estimatedTokens, AISuggestionEngine::estimatedTokens(answer->originalPrompt) + 2);
    EXPECT_EQ(engine.totalTokensUsed(), answer->estimatedTokens);
    (void)ask("hello");
    EXPECT_EQ(engine.totalTokensUsed(), answer->estimatedTokens);
    engine.resetTokenStats();
    EXPECT_EQ(engine.totalTokensUsed(), 0u);
}

TEST_F(AISuggestionEngineTest, NeverSendsWhatTheFirewallRefuses) {
    const Context surroundings{{}, {}, {}, "my secret", {}, {}};
    EXPECT_EQ(ask("a secret").error().kind, AIErrorKind::refusedByPrivacy);
    EXPECT_EQ(ask("fine", {{}, {}, {}, {}, "com.vault", {}}).error().kind, AIErrorKind::refusedByPrivacy);
    EXPECT_EQ(ask("fine", {{}, {}, {}, {}, {}, "AXSecureTextField"}).error().kind, AIErrorKind::refusedByPrivacy);
    EXPECT_TRUE(ask("fine", surroundings)) << "what is not sent need not be refused";
    (void)defaults.set("isEnhancedContextEnabled", true);
    EXPECT_EQ(ask("fine", surroundings).error().kind, AIErrorKind::refusedByPrivacy);
    EXPECT_EQ(ask("  \n").error().kind, AIErrorKind::nothingToDo);
    EXPECT_EQ(local.requests.size(), 1u);
}

TEST_F(AISuggestionEngineTest, HarvestsTheFocusedField) {
    workspace.setFrontmost({"com.editor", {}, "Editor", 1, 0});
    EXPECT_EQ(engine.harvestContext().applicationName, "Editor");
    auto field = std::make_shared<FakeFieldElement>();
    fields.element = field;
    field->text = std::string(3000, 'a') + "CARET" + std::string(3000, 'b');
    field->selection = {3000, 0};
    const auto around = engine.harvestContext().surroundingText.value_or("");
    EXPECT_EQ(around.size(), AISuggestionEngine::maxSurroundingText);
    EXPECT_EQ(around.find("CARET"), AISuggestionEngine::maxSurroundingText / 2);
    field->selection = {3000, 5};
    EXPECT_EQ(engine.harvestContext().selectedText, "CARET");
    EXPECT_EQ(engine.harvestContext().surroundingText, std::nullopt);
    field->description.isSecure = true;
    EXPECT_EQ(engine.harvestContext().selectedText, std::nullopt);
    EXPECT_EQ(engine.harvestContext().fieldType, "AXSecureTextField");
}
} // namespace
} // namespace snipwren
