#include "ai/HttpAIProvider.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ai/AIRig.h"
#include "support/LoopbackServer.h"
#include "support/ScriptedServer.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

AIRequest request(std::string prompt) {
    AIRequest made;
    made.prompt = std::move(prompt);
    return made;
}

class HttpAIProviderTest : public testing::Test, protected AIRig {
protected:
    LoopbackReply reply;
    LoopbackServer server{[this](const LoopbackRequest&) { return reply; }};

    void SetUp() override {
        useServer(server.url(""));
        setKey("anthropic", "sk-ant\n");
        setKey("openai", "sk-open");
    }
    std::string streamError(AIProvider& provider) {
        const auto answer = provider.stream(request("x"), {}, {});
        return answer ? "" : answer.error().description;
    }
    std::string plainError(AIProvider& provider) {
        const auto answer = provider.generate(request("x"), {});
        return answer ? "" : answer.error().description;
    }
};

TEST_F(HttpAIProviderTest, SendsTheDocumentedRequests) {
    const Json messages = {{{"role", "user"}, {"content", "say \"hi\" 😀"}}};
    const std::tuple<AIProvider*, const char*, Json, Json> rows[] = {
        {&anthropic,
         "/v1/messages",
         {{"model", "claude-3-5-sonnet-20241022"}, {"max_tokens", 1024}, {"messages", messages}},
         {{"content", {{{"type", "text"}, {"text", "Hello"}}}}, {"stop_reason", "end_turn"}}},
        {&openAI,
         "/v1/chat/completions",
         {{"model", "gpt-4o"}, {"messages", messages}, {"temperature", 0.7}},
         {{"choices", {{{"message", {{"content", "Hello"}}}}}}}},
        {&ollama,
         "/api/chat",
         {{"model", "llama3"}, {"messages", messages}, {"stream", false}, {"options", {{"num_predict", 1024}}}},
         {{"message", {{"content", "Hello"}}}, {"done", true}}},
    };
    for (const auto& [provider, path, body, answer] : rows) {
        reply.body = answer.dump();
        const auto got = provider->generate(request("say \"hi\" 😀"), {});
        ASSERT_TRUE(got) << provider->identifier() << ": " << got.error().description;
        EXPECT_EQ(got->text, "Hello");
        const LoopbackRequest sent = server.requests().back();
        EXPECT_EQ(sent.method + " " + sent.target, "POST " + std::string(path));
        EXPECT_EQ(Json::parse(sent.body), body);
        EXPECT_EQ(sent.headers.at("content-type"), "application/json");

        (void)provider->stream(request("x"), {}, {});
        EXPECT_EQ(Json::parse(server.requests().back().body)["stream"], true) << provider->identifier();
    }
    const auto sent = server.requests();
    EXPECT_EQ(sent[0].headers.at("x-api-key"), "sk-ant");
    EXPECT_EQ(sent[0].headers.at("anthropic-version"), "2023-06-01");
    EXPECT_EQ(sent[2].headers.at("authorization"), "Bearer sk-open");
    EXPECT_EQ(sent[4].headers.count("authorization"), 0u);
}

TEST_F(HttpAIProviderTest, SaysWhatWentWrong) {
    reply = {500, "oops"};
    EXPECT_EQ(streamError(anthropic), "HTTP Stream Error 500");
    EXPECT_EQ(streamError(openAI), "HTTP Stream Error 500");
    EXPECT_EQ(streamError(ollama), "HTTP Ollama Stream Error 500");
    EXPECT_EQ(plainError(openAI), "HTTP Error 500");
    reply = {200, "<html>"};
    EXPECT_EQ(plainError(anthropic), "Failed to parse response JSON.");
    EXPECT_EQ(plainError(openAI), "Failed to parse response JSON.");
    EXPECT_EQ(plainError(ollama), "Failed to parse Ollama response.");
    for (const char* odd :
         {"{}", "[]", R"({"content":"x","choices":{},"message":[]})", R"({"content":[],"choices":[]})",
          R"({"content":[{"text":1}],"choices":[{"message":{"content":null}}],"message":{}})"}) {
        reply.body = odd;
        for (AIProvider* const provider : {static_cast<AIProvider*>(&anthropic), static_cast<AIProvider*>(&openAI),
                                           static_cast<AIProvider*>(&ollama)})
            EXPECT_EQ(provider->generate(request("x"), {}).error().kind, AIErrorKind::badResponse) << odd;
    }
    (void)defaults.set("ollamaModel", "missing");
    reply = {404, R"({"error":"model 'missing' not found, try pulling it first"})"};
    EXPECT_EQ(streamError(ollama),
              "Local Ollama does not know the model \"missing\". Choose another one with the setting ollamaModel.");
    reply = {404, R"({"error":{"code":"model_not_found"}})"};
    EXPECT_EQ(plainError(openAI),
              "OpenAI does not know the model \"gpt-4o\". Choose another one with the setting openAIModel.");

    ScriptedServer notHttp([](ScriptedServer::Connection& connection) { connection.send("SSH-2.0-x\r\n"); });
    useServer(notHttp.url(""));
    EXPECT_EQ(plainError(openAI), "Invalid network response.");
}

TEST_F(HttpAIProviderTest, ChecksKeys) {
    reply.body = R"({"content":[{"text":"Hello"}]})";
    EXPECT_EQ(anthropic.validateApiKey({}), true);
    EXPECT_EQ(Json::parse(server.requests().back().body)["max_tokens"], 1);
    reply = {401, "{}"};
    EXPECT_EQ(anthropic.validateApiKey({}), false);
    reply = {503, "{}"};
    EXPECT_EQ(anthropic.validateApiKey({}).error().description, "HTTP Error 503");

    secrets.remove(HttpAIProvider::keyOwner, "anthropic");
    setKey("openai", "  \n");
    EXPECT_EQ(streamError(anthropic), "Anthropic API key is missing in Keychain.");
    EXPECT_EQ(anthropic.validateApiKey({}).error().kind, AIErrorKind::missingKey);
    (void)defaults.remove("openAIBaseURL");
    EXPECT_EQ(streamError(openAI), "OpenAI API key is missing in Keychain.");
    EXPECT_EQ(openAI.whyUnusable({})->kind, AIErrorKind::missingKey);
    (void)defaults.set("openAIBaseURL", server.url("/v1/"));
    EXPECT_EQ(streamError(openAI), "HTTP Stream Error 503") << "a local server needs no key";
    EXPECT_EQ(server.requests().back().target, "/v1/chat/completions");

    reply = {200, R"({"models":[{"name":"llama3:latest"},{"size":1}]})"};
    EXPECT_EQ(ollama.whyUnusable({}), std::nullopt);
    EXPECT_EQ(ollama.installedModels({}), std::vector<std::string>{"llama3:latest"});
    EXPECT_EQ(server.requests().back().method + " " + server.requests().back().target, "GET /api/tags");
}

TEST_F(HttpAIProviderTest, StreamsByteForByteCutAndCancelled) {
    const std::string events = "data: {\"choices\":[{\"delta\":{\"content\":\"Grü\"}}]}\n\n"
                               "data: {\"choices\":[{\"delta\":{\"content\":\"ße\"},\"finish_reason\":\"stop\"}]}\n\n";
    std::string tail;
    bool stalls = false;
    ScriptedServer scripted([&](ScriptedServer::Connection& connection) {
        connection.sendBytewise("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nContent-Length: 5000\r\n\r\n");
        connection.sendBytewise(tail);
        if (stalls) connection.waitForClose();
    });
    useServer(scripted.url(""));
    std::string shown;
    int served = 0;
    const auto stream = [&](std::stop_token stop, const std::function<void()>& onText) {
        shown.clear();
        auto answer = openAI.stream(
            request("x"),
            [&](std::string_view text) {
                shown += text;
                if (onText) onText();
            },
            stop);
        scripted.waitUntilServed(++served); // The script reads what the test changes next.
        return answer;
    };
    tail = events + "data: [DONE]\n\n";
    stalls = true; // The answer has ended, although the server keeps the connection.
    EXPECT_EQ(stream({}, {})->text, "Grüße");
    EXPECT_EQ(shown, "Grüße");

    std::stop_source source;
    tail = events.substr(0, events.find("\n\n") + 2);
    EXPECT_EQ(stream(source.get_token(), [&] { source.request_stop(); }).error().kind, AIErrorKind::cancelled);
    EXPECT_EQ(shown, "Grü");

    stalls = false;
    const auto cut = stream({}, {});
    EXPECT_EQ(cut.error().kind, AIErrorKind::network);
    tail = events;
    EXPECT_EQ(stream({}, {})->text, "Grüße") << "the answer was whole before the connection was cut";
}

TEST(HttpAIProvider, SendsKeysOverHttpsOrToThisComputerOnly) {
    for (const char* good :
         {"https://api.example.com", "https://api.example.com:8443/base", "http://localhost:1234", "http://127.0.0.1",
          "http://[::1]:8080/v1", "HTTP://LOCALHOST/", "https://[2001:db8::1]:1"})
        EXPECT_TRUE(HttpAIProvider::isAllowedBaseURL(good)) << good;
    for (const char* bad :
         {"", "api.example.com", "http://api.example.com", "ftp://localhost", "http://127.0.0.1.evil.com",
          "http://localhost@evil.com", "http://localhost.evil.com", "http://localhost:80@evil.com", "https://",
          "https:///x", "http://localhost\\evil.com", "https://a b", "https://a?key=1", "http://localhost#x",
          "http://0.0.0.0", "http://localhost:99999999", "http://localhost:x"})
        EXPECT_FALSE(HttpAIProvider::isAllowedBaseURL(bad)) << bad;
    AIRig rig;
    (void)rig.defaults.set("openAIBaseURL", "http://api.example.com");
    EXPECT_EQ(rig.openAI.whyUnusable({})->kind, AIErrorKind::badSetting);
}
} // namespace
} // namespace snipwren
