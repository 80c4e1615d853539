#include "context/server/MCPRequestHandler.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/UserDefaults.h"
#include "context/graph/KnowledgeGraph.h"
#include "context/graph/MemorySealer.h"
#include "context/server/AICompletion.h"
#include "context/server/FocusedContext.h"
#include "context/server/MCPHubManager.h"
#include "context/server/MCPSuggestionQueue.h"
#include "store/KeychainHelper.h"
#include "support/ContextFixture.h"

namespace snipwren {
namespace {
using nlohmann::json;

class Assistant final : public AICompletion {
public:
    Result<Answer, std::string> complete(const Request& request, std::stop_token) override {
        last = request;
        if (request.prompt == "fail") return unexpected(std::string("No API key is set."));
        return Answer{"done", "ollama", "m1", 7};
    }
    Request last;
};

class MCPRequestHandlerTest : public ContextFixture {
protected:
    json call(const std::string& method, const json& params = json::object(),
              const std::optional<std::string>& connection = "c1") {
        return json::parse(handler().handleRequest(method, params.dump(), R"({"any":[1]})", connection, {}));
    }
    MCPRequestHandler& handler() {
        if (!handler_) handler_.emplace(dependencies());
        return *handler_;
    }
    MCPRequestHandler::Dependencies dependencies() {
        return {database, suggestions, hub, graph, sealer, focus, clock, random, &assistant};
    }
    static json error(int code, const std::string& message) { return {{"code", code}, {"message", message}}; }

    Assistant assistant;
    std::optional<MCPRequestHandler> handler_;
};

TEST_F(MCPRequestHandlerTest, NamesWhatIsWrongWithTheParameters) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"snipwren.pushSuggestions", "{}", -32602, "Invalid params: 'suggestions' array required"},
        {"snipwren.pushSuggestions", R"({"suggestions":{}})", -32602, "Invalid params: 'suggestions' array required"},
        {"snipwren.pushSuggestions", R"({"suggestions":[{"title":"t","actionText":"a"},{"title":"t"}]})", -32602,
         "Invalid params: suggestion 2 needs 'title' and 'actionText' strings"},
        {"snipwren.pushMemory", R"({"key":"k","value":5,"context":"c"})", -32602,
         "Invalid params: 'key', 'value', and 'context' strings required"},
        {"snipwren.triggerAI", R"({"prompt":null})", -32602, "Invalid params: 'prompt' string required"},
        {"snipwren.triggerAI", R"({"prompt":"fail"})", -32000, "AI Generation error: No API key is set."},
        {"snipwren.pushNode", R"({"id":"n","type":"t"})", -32602,
         "Invalid params: 'id', 'type', and 'name' are required"},
        {"snipwren.pushEdge", R"({"id":"e","source":"a","target":"b"})", -32602,
         "Invalid params: 'id', 'source', 'target', and 'relationship' are required"},
        {"snipwren.pushEdge", R"({"id":"e","source":"a","target":"b","relationship":"r"})", -32000,
         "The edge's source and target must be known nodes. Push them first with snipwren.pushNode."},
        {"snipwren.queryGraph", R"({"depth":5})", -32602, "Invalid params: 'depth' must be an integer from 0 to 4"},
        {"snipwren.queryGraph", R"({"limit":0})", -32602, "Invalid params: 'limit' must be an integer from 1 to 1000"},
        {"snipwren.queryContext", R"({"includeText":1})", -32602,
         "Invalid params: 'includeText' must be true or false"},
        {"snipwren.queryContext", R"({"includeText":1e999})", -32602, "Invalid params: a number is out of range"},
        {"snipwren.pushContext", R"({"topic":5})", -32602,
         "Invalid params: 'topic' must be a text, a list or an object"},
        {"snipwren.Subscribe", "{}", -32601, "Method not found: snipwren.Subscribe"}};
    for (const auto& [method, params, code, sentence] : cases) {
        const auto answer = json::parse(handler().handleRequest(method, params, "\"x\"", "c1", {}));
        EXPECT_EQ(answer, json({{"jsonrpc", "2.0"}, {"id", "x"}, {"error", error(code, sentence)}}))
            << method << params;
    }
    EXPECT_EQ(database.fetchNodes().size(), 0u);
    EXPECT_TRUE(suggestions.suggestions().empty()) << "nothing of a list with a fault in it is taken";
}

TEST_F(MCPRequestHandlerTest, KeepsThePushedContextAndTellsSubscribers) {
    std::vector<std::string> told;
    hub.connectionOpened("c1", [&](const std::string& line) {
        told.push_back(line);
        return true;
    });
    EXPECT_EQ(call("snipwren.subscribe", json::object(), std::nullopt)["error"],
              error(-32000, "Connection ID context missing for subscription"));
    EXPECT_EQ(call("snipwren.subscribe")["result"], "Subscribed to context broadcasts successfully.");
    EXPECT_EQ(call("snipwren.queryContext")["result"]["pushedContext"], nullptr);
    const json context = {{"project", "Ship \"it\""}, {"relatedNotes", {"a", "b"}}, {"metadata", {{"k", 1}}}};
    EXPECT_EQ(call("snipwren.pushContext", context),
              json({{"jsonrpc", "2.0"}, {"id", {{"any", {1}}}}, {"result", "Context pushed successfully."}}));
    hubQueue.runReady();
    ASSERT_EQ(told.size(), 1u);
    const json want = {{"project", "Ship \"it\""},
                       {"topic", ""},
                       {"relatedNotes", R"(["a","b"])"},
                       {"activeDecision", ""},
                       {"metadata", R"({"k":1})"}};
    EXPECT_EQ(json::parse(told[0])["params"], want);
    MCPRequestHandler restarted(dependencies());
    for (auto* one : {&handler(), &restarted}) {
        const auto result = json::parse(one->handleRequest("snipwren.queryContext", "{}", "1", "c", {}))["result"];
        EXPECT_EQ(result["pushedContext"], want) << "kept over a restart";
        EXPECT_EQ(result["project"], want["project"]);
        EXPECT_EQ(result["focusedContext"], "unknown");
        EXPECT_EQ(result.size(), 10u) << result;
    }
}

TEST_F(MCPRequestHandlerTest, TellsTheFieldsTextOnlyWhenAllowed) {
    struct Case {
        const char* why;
        FieldDescription field;
        std::string kind;
        bool isTold;
    };
    const auto field = [](const char* label, const char* placeholder, bool secure = false) {
        FieldDescription description;
        description.role = "text";
        description.label = label;
        description.placeholder = placeholder;
        description.windowTitle = "Window";
        description.isSecure = secure;
        return description;
    };
    const Case cases[] = {{"plain", field("Message", ""), "plainText", true},
                          {"mail", field("E-Mail", ""), "email", true},
                          {"search", field("", "Find in page"), "search", true},
                          {"secret words", field("", "Enter PIN Code"), "plainText", false},
                          {"password", field("Login PASSWORD", ""), "email", false},
                          {"secure", field("Message", "", true), "plainText", false}};
    for (const bool allowed : {false, true}) {
        ASSERT_TRUE(defaults.set(FocusedContext::allowTextKey, allowed));
        for (const auto& one : cases) {
            focusedField.show(one.field, "typed text");
            const auto result = call("snipwren.queryContext", {{"includeText", true}})["result"];
            EXPECT_EQ(result["focusedContext"], one.kind) << one.why;
            EXPECT_EQ(result.contains("text"), allowed && one.isTold) << one.why;
            EXPECT_FALSE(call("snipwren.queryContext")["result"].contains("text"));
        }
    }
    focusedField.show(cases[0].field, "4111 1111 1111 1111");
    EXPECT_FALSE(call("snipwren.queryContext", {{"includeText", true}})["result"].contains("text")) << "the firewall";
    workspace.setFrontmost({.bundleId = "com.bitwarden.desktop", .identities = {}, .name = "Bitwarden"});
    focusedField.show(cases[0].field, "typed text");
    const auto vault = call("snipwren.queryContext", {{"includeText", true}})["result"];
    EXPECT_FALSE(vault.contains("text"));
    EXPECT_EQ(vault["activeApplication"], "Bitwarden");
    EXPECT_EQ(vault["windowTitle"], "") << "of an excluded application only the name is told";
}

TEST_F(MCPRequestHandlerTest, QueuesSuggestionsWithTheirDefaults) {
    EXPECT_EQ(call("snipwren.pushSuggestions",
                   {{"suggestions",
                     {{{"title", "a"}, {"actionText", "x"}},
                      {{"title", "b"}, {"actionText", "y"}, {"priority", 3}, {"id", "B"}, {"expiresAt", 100.5}},
                      {{"title", "c"}, {"actionText", "z"}, {"expiresAt", -5}}}}})["result"],
              "Pushed 3 suggestions successfully.");
    const auto queued = suggestions.suggestions();
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_EQ(queued[0].id, "B");
    EXPECT_EQ(queued[0].expiresAt, fromSecondsSince1970(100.5));
    EXPECT_EQ(queued[1].id.size(), 36u);
    EXPECT_EQ(call("snipwren.clearSuggestions", {{"ids", {"B"}}})["result"], "Suggestions cleared successfully.");
    EXPECT_EQ(suggestions.suggestions().size(), 1u);
    EXPECT_EQ(call("snipwren.clearSuggestions", {{"ids", "B"}})["error"]["code"], -32602);
    call("snipwren.clearSuggestions");
    EXPECT_TRUE(suggestions.suggestions().empty());
}

TEST_F(MCPRequestHandlerTest, SealsMemories) {
    const json memory = {{"key", "k"}, {"value", "the secret value"}, {"context", "c"}, {"tags", {"x", "y"}}};
    EXPECT_EQ(call("snipwren.pushMemory", memory)["result"], "Knowledge memory stored securely.");
    const auto rows = database.fetchAllMCPKnowledge();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].at("tags"), "x,y");
    EXPECT_EQ(sealer.open(rows[0].at("value_encrypted")), "the secret value");
    const auto path = secrets.path(KeychainHelper::service, MemorySealer::keyName);
    ASSERT_EQ(files.read(*path)->size(), 32u);

    const auto sealed = sealer.seal("");
    ASSERT_TRUE(sealed);
    EXPECT_EQ(sealer.open(*sealed), "");
    EXPECT_NE(sealed, sealer.seal("")) << "a fresh nonce each time";
    std::string changed = rows[0].at("value_encrypted");
    changed[20] = changed[20] == 'A' ? 'B' : 'A';
    for (const std::string& wrong :
         {changed, std::string("AAAA"), std::string("no base64!"), std::string(), changed + "===="})
        EXPECT_EQ(sealer.open(wrong), unexpected(SealError::notAuthentic)) << wrong;

    secrets.save(KeychainHelper::service, MemorySealer::keyName, "short");
    EXPECT_EQ(call("snipwren.pushMemory", memory)["error"], error(-32000, "Failed to encrypt knowledge entry"));
    EXPECT_EQ(files.read(*path).value(), "short") << "a damaged key is never replaced";
}

TEST_F(MCPRequestHandlerTest, AsksTheAssistant) {
    EXPECT_EQ(call("snipwren.triggerAI", {{"prompt", "p"}, {"maxTokens", 9}})["result"],
              json({{"text", "done"}, {"provider", "ollama"}, {"model", "m1"}, {"estimatedTokens", 7}}));
    EXPECT_EQ(assistant.last.style, "professional");
    EXPECT_EQ(assistant.last.language, "English");
    EXPECT_EQ(assistant.last.maxTokens, 9);
    auto without = dependencies();
    without.assistant = nullptr;
    const auto answer =
        json::parse(MCPRequestHandler(without).handleRequest("snipwren.triggerAI", R"({"prompt":"p"})", "1", "c", {}));
    EXPECT_EQ(answer["error"]["code"], -32000);
}

TEST_F(MCPRequestHandlerTest, AnswersTheGraphAsItWasPushed) {
    EXPECT_EQ(call("snipwren.pushNode",
                   {{"id", "a"}, {"type", "person"}, {"name", "Ada"}, {"properties", {{"born", 1815}}}})["result"],
              "Node pushed successfully.");
    call("snipwren.pushNode", {{"id", "b"}, {"type", "machine"}, {"name", "Engine"}});
    EXPECT_EQ(call("snipwren.pushEdge",
                   {{"id", "e"}, {"source", "a"}, {"target", "b"}, {"relationship", "programs"}})["result"],
              "Edge pushed successfully.");
    const auto result = call("snipwren.queryGraph", {{"from", "b"}})["result"];
    EXPECT_EQ(result["nodes"].size(), 2u);
    EXPECT_EQ(result["nodes"][1], json({{"id", "a"},
                                        {"type", "person"},
                                        {"name", "Ada"},
                                        {"properties", {{"born", "1815"}}},
                                        {"createdAt", 0},
                                        {"updatedAt", 0}}));
    EXPECT_EQ(result["edges"], json({{{"id", "e"},
                                      {"source", "a"},
                                      {"target", "b"},
                                      {"relationship", "programs"},
                                      {"properties", json::object()},
                                      {"createdAt", 0}}}));
}
} // namespace
} // namespace snipwren
