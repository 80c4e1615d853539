#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/ManualClock.h"
#include "support/TemporaryFolder.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"

namespace snipwren {
namespace {
/// A real vault and a real graph in a temporary home; 2025-03-04 09:05 in London.
class NoteTargets : public testing::Test {
protected:
    void write(const std::string& name, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(home.file(name)).parent_path());
        std::ofstream(home.file(name), std::ios::binary) << text;
    }
    std::string read(const std::string& name) { return files.read(home.file(name)).value_or("(missing)"); }
    std::string capture(CaptureTarget& target, const std::string& text) {
        const auto sent = target.send(text, std::nullopt, {});
        return sent ? "" : sent.error().description;
    }
    void makeVault(const std::string& dailyNotes) {
        std::filesystem::create_directories(home.file("Vault/.obsidian"));
        if (!dailyNotes.empty()) write("Vault/.obsidian/daily-notes.json", dailyNotes);
        ASSERT_TRUE(defaults.set(ObsidianTarget::vaultKey, "~/Vault"));
    }
    bool logged(const std::string& line) const {
        const auto lines = log.lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    TemporaryFolder home;
    PosixFileIO files;
    Paths paths = [this] {
        Paths all = Paths::under(home.path());
        all.home = home.path();
        return all;
    }();
    UserDefaults defaults{files, home.file("defaults.json")};
    Calendar calendar = Calendar::make("Europe/London", "en_GB").value();
    ManualClock clock{calendar.resolve({2025, 3, 4, 9, 5, 0}).value()};
    MemoryLog log;
    ObsidianTarget obsidian{{files, paths, defaults, clock, calendar, log}};
    LogseqTarget logseq{{files, paths, defaults, clock, calendar, log}};
};

class ObsidianTargetTest : public NoteTargets {};
class LogseqTargetTest : public NoteTargets {};

TEST_F(ObsidianTargetTest, FindsTheVaultAroundTheChosenFolder) {
    std::filesystem::create_directories(home.file("Vault/.obsidian"));
    std::filesystem::create_directories(home.file("Vault/Daily/deep"));
    std::filesystem::create_directories(home.file("Plain"));
    write("file.md", "");
    const auto resolve = [&](const std::string& from) { return ObsidianVaultPath::resolve(from, files, home.path()); };
    using Resolution = ObsidianVaultPath::Resolution;
    EXPECT_EQ(resolve(" ~/Vault\n"), (Resolution{home.file("Vault"), false, true}));
    EXPECT_EQ(resolve("~/Vault/Daily/deep"), (Resolution{home.file("Vault"), true, true}));
    EXPECT_EQ(resolve("~/Plain"), (Resolution{home.file("Plain"), false, false}));
    EXPECT_EQ(resolve(" ").error().code, 1);
    EXPECT_EQ(resolve("~/file.md").error().code, 3);
    EXPECT_EQ(resolve("~/none").error().description,
              "Obsidian vault path does not exist or is not a folder: " + home.file("none")
                  + ". Re-select it under Capture Targets in Snipwren Settings.");
    EXPECT_EQ(ObsidianVaultPath::verdict("~/Vault/Daily", files, home.path()),
              "OK — found vault root at " + home.file("Vault"));
}

TEST_F(ObsidianTargetTest, WritesToTheNoteThatTheVaultsSettingsName) {
    makeVault(R"({"folder":" Journal ","format":"YYYY/MM/YYYY-MM-DD dddd","template":"Templates/Day"})");
    write("Vault/Templates/Day.md", "# Today\n## Log");
    ASSERT_TRUE(defaults.set(ObsidianTarget::vaultKey, home.file("Vault/Templates")));
    EXPECT_EQ(capture(obsidian, "  first thing "), "");
    const std::string note = "Vault/Journal/2025/03/2025-03-04 Tuesday.md";
    EXPECT_EQ(read(note), "# Today\n## Log\n- [09:05] first thing\n");
    clock.advance(std::chrono::minutes(1));
    EXPECT_EQ(capture(obsidian, "second"), "");
    EXPECT_EQ(read(note), "# Today\n## Log\n- [09:05] first thing\n- [09:06] second\n");
    EXPECT_EQ(read("Vault/Templates/Day.md"), "# Today\n## Log");
    EXPECT_TRUE(logged("📝 ObsidianTarget: Configured path was inside the vault; using vault root '" + home.file("Vault")
                       + "'"));
    EXPECT_TRUE(logged("📝 ObsidianTarget: Successfully initialized daily note using template 'Templates/Day'"));
    EXPECT_TRUE(logged("📝 ObsidianTarget: Successfully captured line to Daily Note at: " + home.file(note)));

    ASSERT_TRUE(defaults.set(ObsidianTarget::folderKey, "Mine")); // The user's own folder wins.
    EXPECT_EQ(capture(obsidian, "third"), "");
    EXPECT_EQ(read("Vault/Mine/2025/03/2025-03-04 Tuesday.md"), "# Today\n## Log\n- [09:06] third\n");
}

TEST_F(ObsidianTargetTest, TakesTheVaultFromTheKnowledgeFolders) {
    EXPECT_EQ(capture(obsidian, "x"),
              "No Obsidian vault configured. Set your vault path under Capture Targets in Snipwren Settings.");
    std::filesystem::create_directories(home.file("Other"));
    makeVault("{ broken");
    ASSERT_TRUE(defaults.set(ObsidianTarget::vaultKey, "  "));
    ASSERT_TRUE(defaults.set("knowledgeFolders", std::vector<std::string>{"~/Other", "~/Vault"}));
    EXPECT_EQ(capture(obsidian, "found"), "");
    EXPECT_EQ(read("Vault/2025-03-04.md"), "- [09:05] found\n"); // Damaged settings are as none.
}

TEST_F(ObsidianTargetTest, NeverWritesOutsideTheVault) {
    const std::pair<const char*, int> cases[] = {
        {R"({"format":"YYYY/../../DD"})", ObsidianTarget::outsideVault},
        {R"({"format":"'../../evil'"})", ObsidianTarget::outsideVault},
        {R"({"folder":"a/../.."})", ObsidianTarget::outsideVault},
        {R"({"template":"../secret"})", ObsidianTarget::outsideVault},
        {R"({"folder":"a\u0000b"})", ObsidianTarget::outsideVault},
        {R"({"format":"YYYY-MM-Do"})", ObsidianTarget::noFileName},
        {R"({"format":"YYYY/"})", ObsidianTarget::noFileName},
    };
    write("secret.md", "secret");
    for (const auto& [config, code] : cases) {
        makeVault(config);
        const auto sent = obsidian.send("x", std::nullopt, {});
        ASSERT_FALSE(sent) << config;
        EXPECT_EQ(sent.error().code, code) << config << sent.error().description;
    }
    makeVault(R"({"folder":"a/../b","format":"'/abs/'yyyy"})"); // Stays inside.
    EXPECT_EQ(capture(obsidian, "x"), "");
    EXPECT_EQ(read("Vault/b/abs/2025.md"), "- [09:05] x\n");
}

TEST_F(ObsidianTargetTest, TurnsTheDateNotationAndNamesWhatIsLost) {
    const std::pair<const char*, const char*> patterns[] = {
        {"YYYY-MM-DD dddd", "yyyy-MM-dd EEEE"}, {"ddd", "E"}, {"D MMMM", "d MMMM"}, {"DDDD", "EEEE"}, {"YY", "YY"}};
    for (const auto& [from, to] : patterns) EXPECT_EQ(ObsidianTarget::datePattern(from), to);
    using Tokens = std::vector<std::string>;
    EXPECT_EQ(ObsidianTarget::tokensNotCarriedOver("YYYY-MM-DD dddd HH.mm"), Tokens());
    EXPECT_EQ(ObsidianTarget::tokensNotCarriedOver("MMMM Do, [week] ww YY Do DDDD"),
              (Tokens{"Do", "[week]", "ww", "YY", "DDDD"}));
}

TEST_F(ObsidianTargetTest, UsesTheDayOfTheUsersTimeZone) {
    makeVault("");
    const struct {
        const char* zone;
        const char* note;
        const char* line;
    } cases[] = {{"Pacific/Auckland", "2025-03-04", "- [12:30] x\n"},
                 {"UTC", "2025-03-03", "- [23:30] x\n"},
                 {"America/Los_Angeles", "2025-03-03", "- [15:30] x\n"}};
    for (const auto& [zone, note, line] : cases) {
        const Calendar there = Calendar::make(zone, "ar_EG").value(); // Digits stay Western.
        const ManualClock late(calendar.resolve({2025, 3, 3, 23, 30, 0}).value());
        ObsidianTarget target({files, paths, defaults, late, there, log});
        EXPECT_EQ(capture(target, "x"), "");
        const std::string path = std::string("Vault/") + note + ".md";
        EXPECT_NE(read(path).find(line), std::string::npos) << zone << ": " << read(path);
    }
}

TEST_F(ObsidianTargetTest, KeepsEveryLineOfCapturesAtTheSameTime) {
    makeVault(R"({"template":"t"})");
    write("Vault/t.md", "top");
    constexpr int each = 40;
    const auto captures = [&](const std::string& name) {
        for (int i = 0; i < each; ++i) EXPECT_EQ(capture(obsidian, name + std::to_string(i)), "");
    };
    const pid_t child = ::fork(); // Another program of ours.
    ASSERT_GE(child, 0);
    if (child == 0) {
        captures("process ");
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    {
        std::jthread other([&] { captures("thread "); });
        captures("main ");
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const std::string note = read("Vault/2025-03-04.md");
    EXPECT_EQ(std::count(note.begin(), note.end(), '\n'), 1 + 3 * each);
    EXPECT_EQ(note.substr(0, 4), "top\n");
    for (const char* name : {"process ", "thread ", "main "})
        for (int i = 0; i < each; ++i)
            EXPECT_NE(note.find("\n- [09:05] " + (name + std::to_string(i)) + "\n"), std::string::npos);
}

TEST_F(ObsidianTargetTest, LeavesTheNoteAsItWasWhenItCannotBeWritten) {
    makeVault("");
    write("Vault/2025-03-04.md", "as it was");
    const auto full = ::fork();
    ASSERT_GE(full, 0);
    if (full == 0) { // A full disk: the file may grow by three bytes.
        const rlimit limit{12, 12};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const std::string problem = capture(obsidian, "does not fit");
        ::_exit(problem.find("Could not write to") == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(full, &status, 0), full);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read("Vault/2025-03-04.md"), "as it was");
    struct stat before {
    }, after{};
    ASSERT_EQ(::stat(home.file("Vault/2025-03-04.md").c_str(), &before), 0);
    EXPECT_EQ(capture(obsidian, "fits"), "");
    ASSERT_EQ(::stat(home.file("Vault/2025-03-04.md").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino); // Appended, not replaced.
    EXPECT_EQ(read("Vault/2025-03-04.md"), "as it was\n- [09:05] fits\n");
}

TEST_F(LogseqTargetTest, WritesBlocksToTheJournalOfTheDay) {
    EXPECT_EQ(capture(logseq, "x"), "Logseq Graph Path is not configured. Please set your Logseq Graph Path under "
                                    "Target Configurations in Snipwren Settings.");
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, " ~/Graph\n"));
    EXPECT_EQ(capture(logseq, "TODO call Ana"), "");
    EXPECT_EQ(read("Graph/journals/2025_03_04.md"), "- TODO call Ana\n");
    EXPECT_TRUE(logged("📝 LogseqTarget: Successfully captured line to Journal at: 2025_03_04.md"));
    write("Graph/journals/2025_03_04.md", "- open end");
    EXPECT_EQ(capture(logseq, "next"), "");
    EXPECT_EQ(read("Graph/journals/2025_03_04.md"), "- open end\n- next\n");
    std::filesystem::permissions(home.file("Graph/journals/2025_03_04.md"), std::filesystem::perms::owner_read);
    EXPECT_EQ(capture(logseq, "protected"), "");
    EXPECT_EQ(read("Graph/journals/2025_03_04.md"), "- open end\n- next\n- protected\n");
    clock.advance(std::chrono::hours(15)); // Past midnight.
    EXPECT_EQ(capture(logseq, "tomorrow"), "");
    EXPECT_EQ(read("Graph/journals/2025_03_05.md"), "- tomorrow\n");
}

TEST_F(LogseqTargetTest, TellsTasksFromText) {
    const std::pair<const char*, const char*> cases[] = {{"todo    call Ana  ", "- TODO call Ana\n"},
                                                         {"Todo", "- TODO \n"},
                                                         {"todos are done", "- todos are done\n"},
                                                         {"todo\tx", "- todo\tx\n"},
                                                         {"plain", "- plain\n"}};
    for (const auto& [text, want] : cases) EXPECT_EQ(LogseqTarget::block(text), want) << text;
}

TEST_F(LogseqTargetTest, WarnsOfAGraphThatReadsItsJournalsElsewhere) {
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, home.file("Graph")));
    EXPECT_TRUE(logseq.warnings().empty());
    write("Graph/logseq/config.edn", "{:a \"; :journal/file-name-format\"\n ;; :journal/file-name-format \"x\"\n "
                                     ":journal/file-name-format \"yyyy_MM_dd\" :journals-directory \"journals\"}");
    EXPECT_TRUE(logseq.warnings().empty());
    write("Graph/logseq/config.edn", "{:journal/file-name-format\n  \"yyyy-MM-dd\"\n:journals-directory \"days\"}");
    ASSERT_EQ(logseq.warnings().size(), 2u);
    EXPECT_NE(logseq.warnings()[0].find("\"yyyy-MM-dd\""), std::string::npos);
}
} // namespace
} // namespace snipwren
