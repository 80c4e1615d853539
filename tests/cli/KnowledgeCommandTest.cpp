#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli/CommandLine.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

class KnowledgeCommandTest : public testing::Test {
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

TEST_F(KnowledgeCommandTest, IndexesAndSearchesAFolder) {
    const std::string notes = folder.file("Notes");
    std::filesystem::create_directories(notes);
    std::ofstream(notes + "/plan.md") << "# Deploy the cluster\non friday 会議室の予約";
    std::ofstream(notes + "/bad.md") << "caf\xE9";
    EXPECT_EQ(run({"index", "status"}), 0);
    EXPECT_NE(out.str().find("Never rebuilt."), std::string::npos);
    EXPECT_EQ(run({"index", "add", notes.c_str()}), 0) << err.str();
    EXPECT_NE(out.str().find("Indexed 1 note from 1 folder in "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("1 file could not be indexed; the log names each: "), std::string::npos) << out.str();
    EXPECT_EQ(run({"index", "add", (notes + "/").c_str()}), 0);
    EXPECT_EQ(out.str(), "This folder is already indexed.\n");
    EXPECT_EQ(run({"index", "status", "--json"}), 0);
    EXPECT_EQ(Json::parse(out.str())["documentCount"], 1);

    EXPECT_EQ(run({"search", "deploying"}), 0);
    EXPECT_NE(out.str().find(notes + "/plan.md"), std::string::npos);
    EXPECT_NE(err.str().find("Searching for one word: "), std::string::npos);
    EXPECT_EQ(run({"search", "--json", "the", "friday", "cluster"}), 0);
    EXPECT_EQ(Json::parse(out.str())[0]["source"], "Notes");
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(run({"search", "--json", "会議室"}), 0);
    EXPECT_EQ(Json::parse(out.str()).size(), 1u);

    EXPECT_EQ(run({"index", "remove", notes.c_str()}), 0);
    EXPECT_EQ(run({"search", "friday"}), 0);
    EXPECT_EQ(out.str(), "No note has all of these words.\n");
    EXPECT_EQ(run({"index", "remove", notes.c_str()}), 1);
    EXPECT_EQ(run({"index", "add", "/nowhere/at/all"}), 1);
    EXPECT_NE(err.str().find("does not exist or is not a folder"), std::string::npos);
}
} // namespace
} // namespace snipwren
