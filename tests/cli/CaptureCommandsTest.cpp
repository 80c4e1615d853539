// The commands type, capture, targets, config and completion, as a user calls them.
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "cli/CommandLine.h"
#include "records/CaptureJournal.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
struct CaptureCommands : testing::Test {
    TemporaryFolder folder;
    Paths paths = Paths::under(folder.path());
    PosixFileIO files;
    std::string out, err;

    int run(std::vector<const char*> words, const std::string& input = "") {
        words.insert(words.begin(), "snipwren");
        Environment environment(paths);
        environment.loadDefaults();
        std::istringstream in(input);
        std::ostringstream outStream, errStream;
        const int status =
            runCommandLine(static_cast<int>(words.size()), words.data(), in, outStream, errStream, environment);
        out = outStream.str();
        err = errStream.str();
        return status;
    }
    std::string note() { return files.read(paths.documents + "/Snipwren/Quick Capture.md").value_or("missing"); }
    std::string recoveryLog() { return files.read(paths.applicationSupport + "/fallback_captures.log").value_or(""); }
};

TEST_F(CaptureCommands, TypesATriggerAndItsTextIntoTheNote) {
    ASSERT_EQ(run({"type"}, "Hello, //note buy milk\n"), 0) << err;
    EXPECT_NE(out.find("\"Hello, \""), std::string::npos) << out;
    EXPECT_NE(out.find("Quick Capture.md"), std::string::npos) << out;
    const std::string first = note();
    EXPECT_EQ(first.substr(0, 20), "# Quick Capture\n\n- [");
    EXPECT_EQ(first.substr(first.size() - 11), "] buy milk\n");
    ASSERT_EQ(run({"type", "--field", "inaccessible", "x //note two\\n"}), 0) << err;
    EXPECT_EQ(split(note(), '\n').size(), split(first, '\n').size() + 1) << "one line more, the first one whole";
}

TEST_F(CaptureCommands, TypeTellsWhatCameOfItAsJson) {
    ASSERT_EQ(run({"type", "--json", "a //copy cop\\by\\nb //note c\\eq"}), 0) << err;
    const auto result = nlohmann::json::parse(out);
    EXPECT_EQ(result["field"], "a b q");
    EXPECT_EQ(result["clipboard"], "coy");
    EXPECT_EQ(result["receipts"].size(), 1U);
    EXPECT_EQ(note(), "missing") << "Escape sent nothing";
    ASSERT_EQ(run({"type", "--json", "--field", "password", "//note secret\\n"}), 0);
    EXPECT_EQ(nlohmann::json::parse(out)["field"], "//note secret");
    EXPECT_EQ(note(), "missing");
}

TEST_F(CaptureCommands, TextInAnOverlayLeftOpenIsKept) {
    ASSERT_EQ(run({"type", "//note half"}), 0) << err;
    EXPECT_NE(out.find("still open for //note with \"half\""), std::string::npos) << out;
    EXPECT_NE(recoveryLog().find("text=\"half\""), std::string::npos);
}

TEST_F(CaptureCommands, CaptureSendsOrKeepsTheText) {
    ASSERT_EQ(run({"capture", "note", "call", "Ana"}), 0) << err;
    EXPECT_NE(note().find("] call Ana\n"), std::string::npos);
    ASSERT_EQ(run({"capture", "note"}, "from a pipe\n"), 0) << err;
    EXPECT_NE(note().find("] from a pipe\n"), std::string::npos);

    EXPECT_EQ(run({"capture", "nope", "my text"}), 1);
    EXPECT_NE(err.find("no command word \"nope\""), std::string::npos) << err;
    EXPECT_NE(recoveryLog().find("text=\"my text\""), std::string::npos);
    EXPECT_EQ(run({"capture", "note", " "}), 1);
    EXPECT_NE(err.find("no text to capture"), std::string::npos) << err;
    EXPECT_EQ(run({"capture"}), 2);

    // The note's folder is a file: the capture cannot be written, and is not lost.
    ASSERT_TRUE(files.writeAtomic(folder.file("blocked"), "", std::nullopt));
    paths.documents = folder.file("blocked");
    EXPECT_EQ(run({"capture", "note", "unlucky"}), 1);
    EXPECT_NE(err.find("Capture failed: "), std::string::npos) << err;
    EXPECT_NE(err.find("Saved to local recovery log."), std::string::npos) << err;
    EXPECT_NE(recoveryLog().find("text=\"unlucky\""), std::string::npos);
}

TEST_F(CaptureCommands, ListsTheTenWordsInTheirOrder) {
    ASSERT_EQ(run({"targets"}), 0);
    std::size_t at = 0;
    for (const char* word : {"//note", "//reminders", "//copy", "//timer", "//calc", "//alarm", "//calendar",
                             "//obsidian", "//slack", "//logseq"}) {
        const std::size_t found = out.find(word, at);
        ASSERT_NE(found, std::string::npos) << word << "\n" << out;
        at = found;
    }
}

TEST_F(CaptureCommands, ConfigReadsWhatItSet) {
    ASSERT_EQ(run({"config", "set", "knowledgeFolders", "[\"/a\",\"/b\"]"}), 0) << err;
    ASSERT_EQ(run({"config", "set", "shortcutHasOption", "true"}), 0);
    ASSERT_EQ(run({"config", "set", "obsidianVaultPath", "~/Notes"}), 0);
    ASSERT_EQ(run({"config", "get", "obsidianVaultPath"}), 0);
    EXPECT_EQ(out, "~/Notes\n");
    ASSERT_EQ(run({"config", "list"}), 0);
    EXPECT_NE(out.find("knowledgeFolders = [\"/a\",\"/b\"]"), std::string::npos) << out;
    ASSERT_EQ(run({"config", "unset", "obsidianVaultPath"}), 0);
    EXPECT_EQ(run({"config", "get", "obsidianVaultPath"}), 1);
    EXPECT_EQ(run({"completion", "fish"}), 0);
    EXPECT_NE(out.find("__fish_use_subcommand -a capture"), std::string::npos);
}

TEST_F(CaptureCommands, UndoTakesTheLastLineBackAndNoOther) {
    ASSERT_EQ(run({"capture", "note", "one"}), 0) << err;
    ASSERT_EQ(run({"capture", "note", "two"}), 0) << err;
    ASSERT_EQ(run({"undo"}), 0) << err;
    EXPECT_EQ(note().find("two"), std::string::npos);
    EXPECT_NE(note().find("] one\n"), std::string::npos);
    ASSERT_EQ(run({"undo"}), 0) << err;
    EXPECT_EQ(note(), "# Quick Capture\n\n");
    EXPECT_EQ(run({"undo"}), 1);
    EXPECT_NE(err.find("There is no capture that can be undone."), std::string::npos) << err;
}

// What a program that was killed left in the journal: the next command finds it, whichever it is.
TEST_F(CaptureCommands, RecoverDeliversOrKeepsWhatWasLeftBehind) {
    {
        Environment environment(paths);
        CaptureJournal journal({environment.files(),
                                environment.paths(),
                                environment.clock(),
                                environment.random(),
                                environment.log(),
                                {}});
        ASSERT_TRUE(journal.open());
        CaptureJournal::Entry left;
        left.id = journal.newId();
        left.target = "note";
        left.text = "left behind";
        left.at = environment.clock().now();
        ASSERT_TRUE(journal.confirmed(left));
        ASSERT_TRUE(journal.typed(journal.newId(), "timer", "25m half typed"));
    }
    ASSERT_EQ(run({"recover"}), 0) << err;
    EXPECT_EQ(out, "delivered  //note left behind\nkept       //timer 25m half typed\n");
    EXPECT_NE(note().find("left behind"), std::string::npos);
    EXPECT_NE(recoveryLog().find("25m half typed"), std::string::npos);
    ASSERT_EQ(run({"recover"}), 0) << err;
    EXPECT_EQ(out, "No capture was left without an outcome.\n");
    EXPECT_EQ(note().find("left behind"), note().rfind("left behind"));
}

TEST_F(CaptureCommands, AClearedHistoryLeavesNothingInTheJournal) {
    ASSERT_EQ(run({"capture", "note", "private words"}), 0) << err;
    ASSERT_EQ(run({"type", "//timer private thought\\e"}), 0) << err;
    const std::string journal = paths.applicationSupport + "/" + CaptureJournal::fileName;
    ASSERT_NE(files.read(journal)->find("private"), std::string::npos);
    ASSERT_EQ(run({"history", "clear"}), 0) << err;
    EXPECT_EQ(files.read(journal)->find("private"), std::string::npos);
}
} // namespace
} // namespace snipwren
