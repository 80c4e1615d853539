// What a person types stands only in the places that are meant to hold it: a marked word goes every way that there is, and
// afterwards every file is searched for it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "app/Environment.h"
#include "base/Text.h"
#include "cli/CommandLine.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
namespace fs = std::filesystem;
constexpr std::string_view mark = "Zaubernuss";

class MarkedWords : public testing::Test {
protected:
    int run(std::vector<std::string> words, const std::string& input = "") {
        std::vector<const char*> arguments{"snipwren"};
        for (const std::string& word : words) arguments.push_back(word.c_str());
        Environment environment(Paths::under(folder.path()));
        environment.loadDefaults();
        std::istringstream in(input);
        std::ostringstream out, err;
        return runCommandLine(static_cast<int>(arguments.size()), arguments.data(), in, out, err, environment);
    }
    /// Every file below the folder in which the word stands, in any letter case.
    std::vector<std::string> filesWithTheMark() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
            if (!entry.is_regular_file()) continue;
            std::ifstream file(entry.path(), std::ios::binary);
            std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            for (const std::string& wanted : {std::string(mark), asciiLowercased(mark)})
                if (bytes.find(wanted) != std::string::npos) {
                    found.push_back(fs::relative(entry.path(), folder.path()).string());
                    break;
                }
        }
        return found;
    }
    std::string log() const {
        std::ifstream file(folder.file("state/com.snipwren.app/snipwren.log"));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    TemporaryFolder folder;
};

TEST_F(MarkedWords, StandOnlyWhereTheyAreMeantToStand) {
    const std::string word(mark);
    fs::create_directories(folder.file("vault/.obsidian"));
    fs::create_directories(folder.file("graph"));
    run({"config", "set", "obsidianVaultPath", folder.file("vault")});
    run({"config", "set", "logseqGraphPath", folder.file("graph")});
    for (const std::string target :
         {"note", "reminders", "copy", "timer", "calc", "alarm", "calendar", "obsidian", "slack", "logseq"}) {
        // Delivered or refused, by its own words and by a trigger; texts that no parser takes; captures that are left.
        for (const std::string& text : {word, "25m " + word, "7:30am " + word, word + " tomorrow 2pm", "1+1 " + word}) {
            run({"capture", target, text});
            run({"type"}, word + " //" + target + " " + text + "\n" + word);
        }
        run({"type", "//" + target + " " + word + "\\e"});
        run({"type", "--field", "inaccessible", word + " //" + target + " " + word});
        run({"type", "--field", "password", "//" + target + " " + word + "\\n"});
        run({"undo"});
    }
    run({"capture", "nowhere", word});
    run({"capture", "slack", "--to", "#general", word});
    run({"config", "set", "obsidianVaultPath", folder.file("missing")});
    run({"capture", "obsidian", word});
    fs::create_directories(folder.file("Documents/Snipwren"));
    fs::remove_all(folder.file("graph"));
    { std::ofstream(folder.file("graph")) << "a file in the way"; }
    run({"capture", "logseq", word});
    run({"recover"});
    run({"log"});
    run({"history"});

    ASSERT_GT(log().size(), 1000U) << "much was logged";
    for (const std::string& file : filesWithTheMark()) {
        const std::string name = fs::path(file).filename().string();
        const bool isMeant = name == "Quick Capture.md" || name == "captures.journal" || name == "fallback_captures.log"
                             || name.starts_with("SnipwrenRules.db") || file.starts_with("vault/")
                             || file.starts_with("graph/") || file.starts_with("Documents/Snipwren/");
        EXPECT_TRUE(isMeant) << file;
    }
    EXPECT_EQ(log().find(mark), std::string::npos);
}
} // namespace
} // namespace snipwren
