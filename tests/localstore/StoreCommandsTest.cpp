#include <sstream>

#include <gtest/gtest.h>

#include "app/LocalStore.h"
#include "cli/CommandLine.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
class StoreCommandsTest : public testing::Test {
protected:
    /// Runs one command line; what it wrote stands in `out` and `err`.
    int run(std::vector<std::string> words, const std::string& input = "") {
        words.insert(words.begin(), "snipwren");
        std::vector<const char*> arguments;
        for (const std::string& word : words) arguments.push_back(word.c_str());
        std::istringstream in(input);
        std::ostringstream outStream;
        std::ostringstream errStream;
        const int status =
            runCommandLine(static_cast<int>(arguments.size()), arguments.data(), in, outStream, errStream, environment);
        out = outStream.str();
        err = errStream.str();
        return status;
    }
    bool shows(const std::string& text) const { return out.find(text) != std::string::npos; }

    TemporaryFolder folder;
    Environment environment{Paths::under(folder.path())};
    std::string out;
    std::string err;
};

TEST_F(StoreCommandsTest, HistoryIsListedSearchedCountedAndCleared) {
    EXPECT_EQ(run({"history"}), 0);
    EXPECT_EQ(out, "No captures yet.\n");
    {
        LocalStore store(environment);
        store.open();
        store.history().record("note", "two\nlines \x1B[31mred", true);
        store.history().record("slack", "hello", false);
    }
    EXPECT_EQ(run({"history"}), 0);
    EXPECT_TRUE(shows("✅ note  two lines [31mred\n")) << out << "an escape must not reach the terminal";
    EXPECT_LT(out.find("slack"), out.find("note")) << "newest first";
    EXPECT_EQ(run({"history", "sla", "--json"}), 0);
    EXPECT_TRUE(shows("\"text\": \"hello\"") && shows("\"success\": false") && !shows("two")) << out;
    EXPECT_EQ(run({"stats"}), 0);
    EXPECT_TRUE(shows("1 today · 1 this week · Best 1 day\n")) << out;
    EXPECT_EQ(run({"history", "please", "clear"}), 1) << "not what was meant";
    EXPECT_EQ(run({"history", "clear"}), 0);
    EXPECT_EQ(run({"history"}), 0);
    EXPECT_EQ(out, "No captures yet.\n");
    EXPECT_EQ(run({"history", "--limit", "0"}), 2);
}

TEST_F(StoreCommandsTest, ADatabaseThatCannotBeOpenedIsSaid) {
    FileIO& files = environment.files();
    ASSERT_TRUE(files.createFolders(joinedPath(environment.paths().applicationSupport, DatabaseManager::fileName)));
    for (const char* command : {"history", "stats"}) {
        EXPECT_EQ(run({command}), 1);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err.find("snipwren: SnipwrenRules.db could not be opened."), 0u) << err;
    }
    EXPECT_EQ(run({"log"}), 0) << "the recovery log does not need it";
}

TEST_F(StoreCommandsTest, TheRecoveryLogIsListedAndCleared) {
    LocalStore(environment).recoveryLog().saveFallback("call \"Ana\"", "slack", "Slack not connected");
    EXPECT_EQ(run({"log"}), 0);
    EXPECT_TRUE(shows("#0  slack  call \"Ana\"\n    Slack not connected\n")) << out;
    EXPECT_EQ(run({"log", "--json"}), 0);
    EXPECT_TRUE(shows("\"text\": \"call \\\"Ana\\\"\"")) << out;
    EXPECT_EQ(run({"log", "clear"}), 0);
    EXPECT_EQ(out, "Error log cleared.\n");
    EXPECT_EQ(run({"log"}), 0);
    EXPECT_EQ(out, "The recovery log is empty.\n");
}

TEST_F(StoreCommandsTest, ARecordIsSentAgainAndTheOutcomeRecorded) {
    FallbackCaptureLogger log(environment.files(), environment.paths(), environment.clock(),
                              environment.notifications());
    ASSERT_TRUE(log.saveFallback("buy milk", "note", "no room"));
    ASSERT_TRUE(log.saveFallback("lost", "nowhere", "no such word"));
    const auto entries = log.readEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(run({"log", "retry", entries[1].id}), 0) << err;
    const auto note = environment.files().read(environment.paths().documents + "/Snipwren/Quick Capture.md");
    ASSERT_TRUE(note);
    EXPECT_NE(note->find("buy milk"), std::string::npos);
    EXPECT_EQ(run({"history"}), 0);
    EXPECT_TRUE(shows("✅ note  buy milk")) << out;
    EXPECT_EQ(run({"log", "retry", entries[0].id}), 1);
    EXPECT_EQ(run({"log", "retry", "2025#9"}), 1);
    EXPECT_EQ(err, "snipwren: The recovery log has no record \"2025#9\". Try: snipwren log\n");

    FileIO& files = environment.files();
    ASSERT_TRUE(files.remove(environment.paths().documents + "/Snipwren/Quick Capture.md"));
    ASSERT_TRUE(files.createFolders(environment.paths().documents + "/Snipwren/Quick Capture.md"));
    EXPECT_EQ(run({"log", "retry", entries[1].id}), 1);
    EXPECT_EQ(err.find("snipwren: Capture failed: "), 0u) << err;
    EXPECT_EQ(log.readEntries().size(), 2u) << "the text is still there";
    EXPECT_EQ(run({"history", "--limit", "1"}), 0);
    EXPECT_TRUE(shows("❌ note  buy milk")) << out;
}

TEST_F(StoreCommandsTest, RulesAreSwitchedAndTried) {
    EXPECT_EQ(run({"rules", "check", "the", "the"}), 1);
    EXPECT_TRUE(shows("M001  warning  Duplicate Words")) << out;
    EXPECT_EQ(run({"rules", "disable", "M001"}), 0);
    EXPECT_EQ(run({"rules", "check"}, "the the"), 0);
    EXPECT_EQ(out, "No rule matches.\n");
    EXPECT_EQ(run({"rules", "list"}), 0);
    EXPECT_TRUE(shows("M001  off") && shows("M002  on ")) << out;
    EXPECT_EQ(run({"rules", "enable", "M099"}), 1);
    EXPECT_EQ(err, "snipwren: There is no rule \"M099\". Try: snipwren rules list\n");
}

TEST_F(StoreCommandsTest, ExclusionsAreAddedAndRemoved) {
    EXPECT_EQ(run({"exclusions", "add", "org.example.vault", "--reason", "mine"}), 0);
    EXPECT_EQ(run({"exclusions", "list"}), 0);
    EXPECT_TRUE(shows("org.example.vault  mine\n") && shows("com.bitwarden.desktop")) << out;
    EXPECT_EQ(run({"exclusions", "remove", "org.example.vault"}), 0);
    EXPECT_FALSE(shows("comes back"));
    EXPECT_EQ(run({"exclusions", "remove", "org.example.vault"}), 1);
    EXPECT_EQ(run({"exclusions", "remove", "com.bitwarden.desktop"}), 0);
    EXPECT_TRUE(shows("It comes back at the next start")) << out;
    EXPECT_EQ(run({"exclusions", "add", " "}), 1);
}

TEST_F(StoreCommandsTest, SecretsAreNeverShown) {
    EXPECT_EQ(run({"secrets", "has", "SnipwrenAI", "openai"}), 1);
    EXPECT_EQ(run({"secrets", "set", "SnipwrenAI", "openai"}, "hunter2\r\n"), 0);
    EXPECT_EQ(out + err, "Saved.\n");
    EXPECT_EQ(LocalStore(environment).secrets().load("SnipwrenAI", "openai"), "hunter2");
    EXPECT_EQ(run({"secrets", "has", "SnipwrenAI", "openai"}), 0);
    EXPECT_EQ(out, "yes\n");
    EXPECT_EQ(run({"secrets", "set", "SnipwrenAI", "openai"}, "\n"), 1);
    EXPECT_EQ(run({"secrets", "set", "SnipwrenAI", "openai", "value"}), 2) << "never as an argument";
    EXPECT_EQ(run({"secrets", "delete", "SnipwrenAI", "openai"}), 0);
    EXPECT_EQ(run({"secrets", "has", "SnipwrenAI", "openai"}), 1);
}
} // namespace
} // namespace snipwren
