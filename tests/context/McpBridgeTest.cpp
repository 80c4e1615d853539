#include "context/mcp/McpBridge.h"

#include <deque>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "context/mcp/McpTools.h"

namespace snipwren {
namespace {
using nlohmann::json;

class McpBridgeTest : public testing::Test {
protected:
    McpBridgeTest()
        : bridge({.toClient = [this](const std::string& line) { client.push_back(json::parse(line)); },
                  .toServer = [this](const std::string& line) -> Result<void, std::string> {
                      if (!running) return unexpected(std::string("Snipwren is not running."));
                      server.push_back(json::parse(line));
                      return {};
                  },
                  .capture =
                      [this](std::int64_t number, McpBridge::CaptureRequest request) {
                          captures.emplace_back(number, std::move(request));
                      }}) {}

    void ask(const std::string& method, json params = json::object(), json id = 1) {
        bridge.fromClient(json({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}).dump());
    }
    /// The same in the stateless revision.
    void askStateless(const std::string& method, json params = json::object(), json id = 1) {
        params["_meta"] = envelope();
        ask(method, params, id);
    }
    static json envelope(const std::string& version = "2026-07-28") {
        return {{"io.modelcontextprotocol/protocolVersion", version},
                {"io.modelcontextprotocol/clientCapabilities", json::object()}};
    }
    void answer(const json& result) {
        ASSERT_FALSE(server.empty());
        bridge.fromServer(json({{"jsonrpc", "2.0"}, {"id", server.front()["id"]}, {"result", result}}).dump());
        server.pop_front();
    }
    json reply() {
        if (client.empty()) return "nothing";
        json line = client.front();
        client.pop_front();
        return line;
    }

    std::deque<json> client;
    std::deque<json> server;
    std::vector<std::pair<std::int64_t, McpBridge::CaptureRequest>> captures;
    bool running = true;
    McpBridge bridge;
};

TEST_F(McpBridgeTest, NegotiatesTheHandshakeRevisions) {
    const std::pair<const char*, const char*> cases[] = {{"2024-11-05", "2024-11-05"}, {"2025-03-26", "2025-03-26"},
                                                         {"2025-06-18", "2025-06-18"}, {"2025-11-25", "2025-11-25"},
                                                         {"2026-07-28", "2025-11-25"}, {"1999-01-01", "2025-11-25"}};
    for (const auto& [wanted, given] : cases) {
        ask("initialize",
            {{"protocolVersion", wanted}, {"capabilities", json::object()}, {"clientInfo", {{"name", "t"}}}});
        const json result = reply()["result"];
        EXPECT_EQ(result["protocolVersion"], given) << wanted;
        EXPECT_EQ(result["serverInfo"]["name"], "snipwren");
        EXPECT_FALSE(result.contains("resultType"));
    }
    bridge.fromClient(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    ask("ping", json::object(), "p");
    EXPECT_EQ(reply(), json({{"jsonrpc", "2.0"}, {"id", "p"}, {"result", json::object()}}));
    ask("server/discover");
    EXPECT_EQ(reply()["error"]["code"], -32602) << "the stateless revision needs its envelope";
}

TEST_F(McpBridgeTest, SpeaksTheStatelessRevision) {
    askStateless("server/discover");
    const json discovered = reply()["result"];
    EXPECT_EQ(discovered["supportedVersions"], json({"2026-07-28"}));
    EXPECT_EQ(discovered["resultType"], "complete");
    EXPECT_EQ(discovered["cacheScope"], "private");
    EXPECT_TRUE(discovered["ttlMs"].is_number_unsigned());
    EXPECT_EQ(discovered["_meta"]["io.modelcontextprotocol/serverInfo"]["name"], "snipwren");
    ask("tools/list", {{"_meta", envelope("2027-01-01")}}, 5);
    EXPECT_EQ(reply(), json({{"jsonrpc", "2.0"},
                             {"id", 5},
                             {"error",
                              {{"code", -32022},
                               {"message", "Unsupported protocol version: 2027-01-01"},
                               {"data", {{"supported", {"2026-07-28"}}, {"requested", "2027-01-01"}}}}}}));
    ask("tools/list", {{"_meta", {{"io.modelcontextprotocol/protocolVersion", "2026-07-28"}}}});
    EXPECT_EQ(reply()["error"]["code"], -32602);
    for (const char* gone : {"ping", "initialize", "resources/subscribe", "logging/setLevel"}) {
        askStateless(gone, {{"uri", "snipwren://context"}, {"protocolVersion", "2025-11-25"}});
        EXPECT_EQ(reply()["error"]["code"], -32601) << gone;
    }
    askStateless("tools/list");
    EXPECT_EQ(reply()["result"]["tools"].size(), 10u);
}

TEST_F(McpBridgeTest, EveryToolIsDescribed) {
    ask("tools/list");
    const json tools = reply()["result"]["tools"];
    ASSERT_EQ(tools.size(), 10u);
    for (const auto& tool : tools) {
        const std::string name = tool["name"];
        EXPECT_NE(McpTools::find(name), nullptr) << name;
        EXPECT_EQ(tool["inputSchema"]["type"], "object") << name;
        for (const auto& required : tool["inputSchema"].value("required", json::array()))
            EXPECT_TRUE(tool["inputSchema"]["properties"].contains(required)) << name << required;
        EXPECT_TRUE(tool["annotations"]["readOnlyHint"].is_boolean()) << name;
        EXPECT_FALSE(tool["description"].get<std::string>().empty());
    }
}

TEST_F(McpBridgeTest, CallsToolsAndTellsTheirErrors) {
    ask("tools/call", {{"name", "snipwren_query_context"}, {"arguments", {{"includeText", true}}}}, "a");
    ask("tools/call", {{"name", "snipwren_push_context"}}, 2);
    ASSERT_EQ(server.size(), 2u);
    EXPECT_EQ(server[0]["method"], "snipwren.queryContext");
    EXPECT_EQ(server[0]["params"], json({{"includeText", true}}));
    std::swap(server[0], server[1]);
    answer("Context pushed successfully.");
    EXPECT_EQ(reply(),
              json({{"jsonrpc", "2.0"},
                    {"id", 2},
                    {"result", {{"content", {{{"type", "text"}, {"text", "Context pushed successfully."}}}}}}}));
    answer({{"project", "P"}});
    const json result = reply()["result"];
    EXPECT_EQ(result["structuredContent"], json({{"project", "P"}}));
    EXPECT_EQ(json::parse(result["content"][0]["text"].get<std::string>()), json({{"project", "P"}}));

    askStateless("tools/call", {{"name", "snipwren_push_node"}, {"arguments", {{"id", "x"}}}});
    bridge.fromServer(
        json({{"id", server[0]["id"]}, {"error", {{"code", -32602}, {"message", "Invalid params"}}}}).dump());
    const json failed = reply()["result"];
    EXPECT_EQ(failed["isError"], true);
    EXPECT_EQ(failed["resultType"], "complete");
    EXPECT_EQ(failed["content"][0]["text"], "Invalid params");
    ask("tools/call", {{"name", "rm"}});
    EXPECT_EQ(reply()["error"]["message"], "Unknown tool: rm");
    running = false;
    ask("tools/call", {{"name", "snipwren_query_context"}});
    EXPECT_EQ(reply()["result"]["content"][0]["text"], "Snipwren is not running.");
    ask("resources/read", {{"uri", "snipwren://context"}});
    EXPECT_EQ(reply()["error"]["message"], "Snipwren is not running.");
}

TEST_F(McpBridgeTest, OpenCallsFailWhenTheServerIsLost) {
    for (int id = 1; id <= 3; ++id) ask("tools/call", {{"name", "snipwren_query_context"}}, id);
    bridge.fromClient(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":2}})");
    ask("tools/call", {{"name", "snipwren_capture"}, {"arguments", {{"target", "note"}, {"text", "t"}}}}, 4);
    bridge.serverLost("Lost.");
    EXPECT_EQ(reply()["id"], 1);
    const json last = reply();
    EXPECT_EQ(last["id"], 3) << "the cancelled one is not answered";
    EXPECT_EQ(last["result"]["isError"], true);
    EXPECT_TRUE(bridge.isBusy()) << "a capture does not need the server";
    ASSERT_EQ(captures.size(), 1u);
    bridge.captured(captures[0].first, {true, "Captured."});
    EXPECT_EQ(reply()["result"]["content"][0]["text"], "Captured.");
    EXPECT_FALSE(bridge.isBusy());
    bridge.captured(captures[0].first, {true, "Captured."});
    EXPECT_TRUE(client.empty());
}

TEST_F(McpBridgeTest, TellsSubscribersOfChanges) {
    running = false;
    ask("resources/subscribe", {{"uri", "snipwren://context"}});
    EXPECT_TRUE(reply()["result"].empty()) << "accepted before the program runs";
    EXPECT_TRUE(bridge.wantsSubscription());
    running = true;
    bridge.retrySubscription();
    bridge.retrySubscription();
    ASSERT_EQ(server.size(), 1u) << "asked once";
    EXPECT_EQ(server[0]["method"], "snipwren.subscribe");
    answer("Subscribed to context broadcasts successfully.");
    askStateless(
        "subscriptions/listen",
        {{"notifications", {{"resourceSubscriptions", {"snipwren://context", "x://y"}}, {"toolsListChanged", true}}}},
        "listen:0");
    const json acknowledged = reply();
    EXPECT_EQ(acknowledged["method"], "notifications/subscriptions/acknowledged");
    EXPECT_EQ(acknowledged["params"]["_meta"]["io.modelcontextprotocol/subscriptionId"], "listen:0");
    EXPECT_EQ(acknowledged["params"]["notifications"], json({{"resourceSubscriptions", {"snipwren://context"}}}));
    bridge.fromServer(R"({"jsonrpc":"2.0","method":"snipwren.contextChanged","params":{}})");
    EXPECT_EQ(reply()["params"], json({{"uri", "snipwren://context"}}));
    EXPECT_EQ(reply()["params"]["_meta"]["io.modelcontextprotocol/subscriptionId"], "listen:0");

    bridge.serverLost("Lost.");
    client.clear();
    bridge.retrySubscription();
    EXPECT_EQ(server.size(), 1u) << "subscribes again after a restart of the program";
    ask("resources/unsubscribe", {{"uri", "snipwren://context"}});
    reply();
    bridge.clientFinished();
    EXPECT_EQ(reply()["result"]["_meta"]["io.modelcontextprotocol/subscriptionId"], "listen:0");
    EXPECT_FALSE(bridge.wantsSubscription());
}

TEST_F(McpBridgeTest, RefusesWhatIsNoRequest) {
    const std::pair<std::string, int> cases[] = {{"{", -32700},
                                                 {"[]", -32600},
                                                 {"5", -32600},
                                                 {R"({"id":null,"method":"ping"})", -32600},
                                                 {R"({"id":1})", -32600},
                                                 {R"({"id":1,"method":"ping","params":[]})", -32602},
                                                 {R"({"id":1,"method":"tools/call","params":{"name":5}})", -32602},
                                                 {R"({"id":1,"method":"tools/list","params":{"cursor":"x"}})", -32602},
                                                 {R"({"id":1,"method":"prompts/list"})", -32601},
                                                 {std::string(500, '[') + std::string(500, ']'), -32700}};
    for (const auto& [line, code] : cases) {
        bridge.fromClient(line);
        EXPECT_EQ(reply()["error"]["code"], code) << line;
        EXPECT_TRUE(client.empty()) << line;
    }
    for (const char* silent :
         {R"({"method":"no/such"})", R"({"id":7,"result":{}})", R"([{"method":"notifications/initialized"}])",
          R"({"method":"notifications/cancelled","params":[]})"}) {
        bridge.fromClient(silent);
        EXPECT_TRUE(client.empty()) << silent;
    }
    for (const char* nonsense : {"", "[]", "{\"id\":1}", "{\"id\":99,\"result\":{}}", "{\"method\":5}"})
        bridge.fromServer(nonsense);
    EXPECT_TRUE(client.empty());
}

TEST_F(McpBridgeTest, AnswersAListWhenAllOfItIsAnswered) {
    bridge.fromClient(
        R"([{"id":1,"method":"ping"},{"id":2,"method":"tools/call","params":{"name":"snipwren_query_graph"}},
                         {"method":"notifications/initialized"},5])");
    EXPECT_TRUE(client.empty());
    answer({{"nodes", json::array()}});
    const json replies = reply();
    ASSERT_EQ(replies.size(), 3u);
    EXPECT_EQ(replies[2]["id"], 2);
}
} // namespace
} // namespace snipwren
