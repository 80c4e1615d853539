#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/ManualClock.h"
#include "support/FakeAttempt.h"
#include "support/TemporaryFolder.h"
#include "targets/LocalNoteTarget.h"
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
    /// The failure's description; empty on success.
    std::string capture(CaptureTarget& target, const std::string& text) {
        FakeAttempt attempt(clock.now());
        const auto sent = target.send(text, std::nullopt, attempt);
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

    TemporaryFolder home{TemporaryFolder::inMemory()};
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
    LocalNoteTarget quick{{files, paths, calendar, log}};
    ObsidianTarget obsidian{{files, paths, defaults, calendar, log}};
    LogseqTarget logseq{{files, paths, defaults, calendar, log}};
};

TEST_F(NoteTargets, ALineArrivesOnceWhereverItsWritingWasCutOff) {
    makeVault("");
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, "~/Graph"));
    const std::string text = "first\nand second"; // Every byte of the line is a place to be cut off at.
    for (CaptureTarget* target : std::initializer_list<CaptureTarget*>{&quick, &obsidian, &logseq}) {
        for (const char* before : {"", "as it was", "as it was\n- [09:05] first\nand second\n"}) {
            FakeAttempt probe(clock.now());
            const std::string path = *target->send("probe", std::nullopt, probe)->revealPath;
            if (*before) std::ofstream(path) << before;
            if (!*before) std::filesystem::remove(path);

            FakeAttempt first(clock.now());
            const auto sent = target->send(text, std::nullopt, first);
            ASSERT_TRUE(sent) << sent.error().description;
            const std::string whole = *files.read(path);
            const NoteLine line = *NoteLine::decoded(first.notes.at(0));
            ASSERT_EQ(line.sizeBefore, std::string(before).size());
            for (std::size_t missing = 0; missing <= line.line.size(); ++missing) {
                std::ofstream(path) << whole.substr(0, whole.size() - missing);
                FakeAttempt next = first.next();
                const auto again = target->send(text, std::nullopt, next);
                ASSERT_TRUE(again) << again.error().description;
                ASSERT_EQ(*files.read(path), whole) << target->commandName() << ": " << missing << " bytes missing";
                EXPECT_EQ(again->sentence, sent->sentence);
            }
        }
    }
}

TEST_F(NoteTargets, ARepeatedAttemptSeesWhatOthersDidToTheNote) {
    const std::string path = quick.captureFileURL();
    // The line is the one that was noted, also when the user has travelled meanwhile.
    const Calendar auckland = Calendar::make("Pacific/Auckland", "en_NZ").value();
    LocalNoteTarget elsewhere({files, paths, auckland, log});
    const std::string filler = "# Quick Capture\n\nlong text that the user takes out again\n";
    const std::string line = "- [09:05] x\n";
    const struct {
        const char* what;
        std::string now, want;
    } rows[] = {
        {"added to after the line", filler + line + "more", filler + line + "more"},
        {"written, its last line feed taken away", filler + "- [09:05] x", filler + line},
        {"rewritten with the line", "short\n" + line, "short\n" + line},
        {"rewritten without it", "short", "short\n" + line},
        {"added to, the line not written", filler + "- [09:05] x and more", filler + "- [09:05] x and more\n" + line},
        {"added to, the line quoted", filler + "- [09:05] y - [09:05] x\n",
         filler + "- [09:05] y - [09:05] x\n" + line},
        {"an equal line of another day", line + filler, line + filler + line},
    };
    for (const auto& row : rows) {
        FakeAttempt first(clock.now());
        first.behaviour = FakeAttempt::Notes::keptAndCutOff;
        ASSERT_TRUE(files.createFolders(parentPath(path), std::nullopt));
        const bool isEqualBefore = row.now.rfind(line, 0) == 0;
        std::ofstream(path) << (isEqualBefore ? row.now : filler);
        EXPECT_FALSE(quick.send("x", std::nullopt, first));
        std::ofstream(path) << row.now;
        FakeAttempt next = first.next();
        EXPECT_TRUE(elsewhere.send("x", std::nullopt, next)) << row.what;
        EXPECT_EQ(*files.read(path), row.want) << row.what;
    }
    FakeAttempt refused(clock.now());
    refused.behaviour = FakeAttempt::Notes::refused;
    std::filesystem::remove_all(parentPath(path));
    EXPECT_EQ(quick.send("x", std::nullopt, refused).error().description, "The journal could not be written.");
    EXPECT_FALSE(files.exists(parentPath(path))) << "what could not be noted is not begun";
}

TEST_F(NoteTargets, ALateCaptureGoesToItsOwnDay) {
    makeVault("");
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, "~/Graph"));
    for (CaptureTarget* target : std::initializer_list<CaptureTarget*>{&obsidian, &logseq}) {
        FakeAttempt first(clock.now());
        first.behaviour = FakeAttempt::Notes::keptAndCutOff;
        EXPECT_FALSE(target->send("x", std::nullopt, first));
        clock.advance(std::chrono::hours(20));
        EXPECT_TRUE(target->deliversAfter(std::chrono::hours(20)));
        FakeAttempt next = first.next();
        EXPECT_TRUE(target->send("x", std::nullopt, next));
        clock.advance(std::chrono::hours(-20));
    }
    EXPECT_EQ(read("Vault/2025-03-04.md"), "- [09:05] x\n");
    EXPECT_EQ(read("Graph/journals/2025_03_04.md"), "- x\n");
}

TEST_F(NoteTargets, UndoTakesOutExactlyItsLine) {
    makeVault("");
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, "~/Graph"));
    for (CaptureTarget* target : std::initializer_list<CaptureTarget*>{&quick, &obsidian, &logseq}) {
        FakeAttempt attempt(clock.now());
        const auto sent = target->send("one\ntwo", std::nullopt, attempt);
        ASSERT_TRUE(sent);
        const std::string path = *sent->revealPath;
        const std::string whole = *files.read(path);
        const std::string line = NoteLine::decoded(sent->undo)->line;
        const std::string rest = whole.substr(0, whole.size() - line.size());
        const auto undone = [&] {
            const auto answer = target->undo("one\ntwo", sent->undo, {});
            return answer ? *answer : answer.error().description;
        };
        const std::string done = "The line was taken out of " + fileName(path) + ".";
        const std::string changed = "The line in " + fileName(path)
                                    + " has been changed since, so nothing was undone. Open the note to change it by "
                                      "hand.";
        EXPECT_EQ(undone(), done);
        EXPECT_EQ(*files.read(path), rest);
        EXPECT_EQ(undone(), changed) << "twice";
        // Equal lines before and after, and text that others put in front.
        std::ofstream(path) << whole + "between\n" + line + "end";
        EXPECT_EQ(undone(), done);
        EXPECT_EQ(*files.read(path), rest + "between\n" + line + "end");
        std::ofstream(path) << line.substr(0, line.size() - 1) + " changed\n";
        EXPECT_EQ(undone(), changed);
        EXPECT_EQ(*files.read(path), line.substr(0, line.size() - 1) + " changed\n");
        std::ofstream(path) << "above\n" + whole.substr(0, whole.size() - 1); // An editor took the last line feed.
        EXPECT_EQ(undone(), done);
        EXPECT_EQ(*files.read(path), "above\n" + rest);
        std::filesystem::remove(path);
        EXPECT_EQ(undone(), changed);
        EXPECT_FALSE(files.exists(path)) << "undoing makes no note";
    }
}

TEST_F(NoteTargets, SayWhatHasToBeSetUp) {
    EXPECT_EQ(obsidian.readiness(), "No Obsidian vault folder is set. Choose the folder in Settings, then type "
                                    "//obsidian again.");
    EXPECT_EQ(logseq.readiness(), "No Logseq graph folder is set. Choose the folder in Settings, then type //logseq "
                                  "again.");
    ASSERT_TRUE(defaults.set(ObsidianTarget::vaultKey, " ~/Vault "));
    ASSERT_TRUE(defaults.set(LogseqTarget::graphKey, "~/Graph"));
    EXPECT_EQ(obsidian.readiness(), "Obsidian vault path does not exist or is not a folder: " + home.file("Vault")
                                        + ". Choose it again in Settings.");
    write("Graph", "a file");
    EXPECT_EQ(logseq.readiness(), "Logseq graph path does not exist or is not a folder: " + home.file("Graph")
                                      + ". Choose it again in Settings.");
    std::filesystem::create_directories(home.file("Vault/.obsidian"));
    EXPECT_EQ(obsidian.readiness(), std::nullopt);
    ASSERT_TRUE(defaults.set(ObsidianTarget::vaultKey, ""));
    ASSERT_TRUE(defaults.set("knowledgeFolders", std::vector<std::string>{"~/Vault"}));
    EXPECT_EQ(obsidian.readiness(), std::nullopt) << "a knowledge folder that is a vault will do";
}

TEST_F(NoteTargets, TheQuickCaptureFileBeginsWithItsHeading) {
    EXPECT_EQ(capture(quick, " \n"), "");
    EXPECT_FALSE(files.exists(quick.captureFileURL()));
    FakeAttempt attempt(clock.now());
    const auto sent = quick.send(" call the plumber\n", std::nullopt, attempt);
    ASSERT_TRUE(sent);
    EXPECT_EQ(*sent, (CaptureReceipt{"Quick Capture.md", quick.captureFileURL(), std::nullopt, true, sent->undo}));
    ASSERT_TRUE(quick.appendCapture("again", quick.captureFileURL(), *calendar.resolve({2025, 3, 5, 0, 7, 0})));
    EXPECT_EQ(*files.read(quick.captureFileURL()), "# Quick Capture\n\n- [09:05] call the plumber\n- [00:07] again\n");
    EXPECT_TRUE(logged("📝 LocalNoteTarget: Captured line to Quick Capture at: " + quick.captureFileURL()));
}

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
        FakeAttempt attempt(clock.now());
        const auto sent = obsidian.send("x", std::nullopt, attempt);
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
        FakeAttempt attempt(calendar.resolve({2025, 3, 3, 23, 30, 0}).value());
        ObsidianTarget target({files, paths, defaults, there, log});
        EXPECT_TRUE(target.send("x", std::nullopt, attempt));
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
