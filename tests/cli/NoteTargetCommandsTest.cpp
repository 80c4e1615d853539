#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "cli/CommandLine.h"
#include "support/TemporaryFolder.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"

namespace snipwren {
namespace {
class NoteTargetCommandsTest : public testing::Test {
protected:
    int run(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "snipwren");
        out.str("");
        err.str("");
        return runCommandLine(static_cast<int>(arguments.size()), arguments.data(), in, out, err, environment);
    }
    TemporaryFolder folder;
    Environment environment{Paths::under(folder.path() + "/home")};
    std::istringstream in;
    std::ostringstream out, err;
};

TEST_F(NoteTargetCommandsTest, ChecksTheVaultAndCapturesIntoIt) {
    EXPECT_EQ(run({"obsidian", "check"}), 1);
    EXPECT_EQ(out.str(), "No vault selected yet.\n");
    const std::string vault = folder.file("Vault");
    std::filesystem::create_directories(vault + "/.obsidian");
    ASSERT_TRUE(environment.defaults().set(ObsidianTarget::vaultKey, vault));
    std::ofstream(vault + "/.obsidian/daily-notes.json") << R"({"format":"[day] Do"})";
    EXPECT_EQ(run({"obsidian", "check"}), 1);
    EXPECT_NE(err.str().find("uses \"[day]\", \"Do\", which"), std::string::npos) << err.str();
    std::ofstream(vault + "/.obsidian/daily-notes.json") << R"({"format":"'today'","template":"none"})";
    EXPECT_EQ(run({"obsidian", "check"}), 0);
    EXPECT_EQ(out.str(),
              "OK — vault root detected (contains .obsidian).\nA capture now goes to: " + vault + "/today.md\n");
    EXPECT_NE(err.str().find(vault + "/none.md"), std::string::npos);
    EXPECT_EQ(run({"capture", "obsidian", "from", "the", "shell"}), 0) << err.str();
    const std::string note = environment.files().read(vault + "/today.md").value_or("");
    EXPECT_EQ(note.substr(10), "from the shell\n") << note;
}

TEST_F(NoteTargetCommandsTest, ChecksTheGraph) {
    EXPECT_EQ(run({"logseq", "check"}), 1);
    const std::string graph = folder.file("Graph");
    ASSERT_TRUE(environment.defaults().set(LogseqTarget::graphKey, graph));
    EXPECT_EQ(run({"logseq", "check"}), 1);
    std::filesystem::create_directories(graph + "/logseq");
    std::ofstream(graph + "/logseq/config.edn") << R"({:journal/file-name-format "yyyy-MM-dd"})";
    EXPECT_EQ(run({"logseq", "check"}), 0);
    EXPECT_EQ(out.str().rfind("A capture now goes to: " + graph + "/journals/", 0), 0u);
    EXPECT_NE(err.str().find("Warning: This graph names its journal files \"yyyy-MM-dd\""), std::string::npos);
}
} // namespace
} // namespace snipwren
