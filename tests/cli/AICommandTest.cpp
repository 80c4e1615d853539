#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "cli/CommandLine.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
class AICommandTest : public testing::Test {
protected:
    TemporaryFolder folder;
    Environment environment{Paths::under(folder.path())};
    LoopbackReply reply;
    LoopbackServer server{[this](const LoopbackRequest& request) {
        return request.target == "/api/tags" ? LoopbackReply{200, R"({"models":[]})"} : reply;
    }};
    std::string out, err;

    void SetUp() override {
        (void)environment.defaults().set("openAIBaseURL", server.url(""));
        (void)environment.defaults().set("ollamaBaseURL", server.url(""));
    }
    int run(std::vector<const char*> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {"snipwren", "ai"});
        std::istringstream in(input);
        std::ostringstream outStream, errStream;
        const int status =
            runCommandLine(static_cast<int>(arguments.size()), arguments.data(), in, outStream, errStream, environment);
        out = outStream.str();
        err = errStream.str();
        return status;
    }
    std::size_t prompts() const {
        return static_cast<std::size_t>(
            std::ranges::count_if(server.requests(), [](const auto& request) { return request.method == "POST"; }));
    }
};

TEST_F(AICommandTest, StreamsAnAnswerToStandardOutput) {
    reply.body = "data: {\"choices\":[{\"delta\":{\"content\":\"Hal\"}}]}\n\ndata: "
                 "{\"choices\":[{\"delta\":{\"content\":\"lo\"},\"finish_reason\":\"stop\"}]}\n\ndata: [DONE]\n";
    EXPECT_EQ(run({"translate", "--provider", "openai", "--model", "tiny", "--lang", "Deutsch", "-"}, "hello"), 0)
        << err;
    EXPECT_EQ(out, "Hallo\n");
    const std::string body = server.requests().back().body;
    EXPECT_NE(body.find("\"model\":\"tiny\""), std::string::npos);
    EXPECT_NE(body.find("to Deutsch. Return ONLY"), std::string::npos);
    EXPECT_NE(body.find("Text/Query:\\n\\\"\\\"\\\"\\nhello\\n"), std::string::npos) << body;
}

TEST_F(AICommandTest, FailsInASentence) {
    EXPECT_EQ(run({"explain", "--provider", "openai", "my card is 4111 1111 1111 1111"}), 1);
    EXPECT_EQ(err, "snipwren: Snipwren did not send this text, because it may hold a password, a key or a card number, "
                   "or comes from an application that is excluded.\n");
    EXPECT_EQ(prompts(), 0u);
    reply = {500, "no"};
    EXPECT_EQ(run({"summarize", "text"}), 1);
    EXPECT_EQ(err, "snipwren: HTTP Ollama Stream Error 500\n");
    EXPECT_EQ(run({"explain", "--provider", "nobody", "text"}), 1);
    EXPECT_EQ(err, "snipwren: There is no AI provider \"nobody\". Try: ollama, anthropic or openai\n");
    EXPECT_EQ(run({"prompt"}), 2);
}

TEST_F(AICommandTest, ListsAndValidatesProviders) {
    EXPECT_EQ(run({"providers"}), 0) << err;
    EXPECT_EQ(out, "* ollama: Local Ollama (llama3), usable\n"
                   "  anthropic: Anthropic (claude-3-5-sonnet-20241022), not usable: Anthropic API key is missing in "
                   "Keychain.\n"
                   "  openai: OpenAI (gpt-4o), usable\n");
    EXPECT_EQ(run({"validate", "ollama"}), 0) << err;
    reply = {401, "{}"};
    EXPECT_EQ(run({"validate", "openai"}), 1);
    EXPECT_EQ(err, "snipwren: The service does not accept the key of openai.\n");
}
} // namespace
} // namespace snipwren
