#include "records/CaptureJournal.h"

#include <algorithm>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "base/Log.h"
#include "base/ManualClock.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "support/FaultyFileIO.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using State = CaptureJournal::State;

/// One program that uses the journal in a folder.
struct Program {
    explicit Program(const TemporaryFolder& folder) : paths(Paths::under(folder.path())) {
        EXPECT_TRUE(journal.open());
    }

    CaptureJournal::Entry capture(const std::string& id, const std::string& text) {
        CaptureJournal::Entry entry;
        entry.id = id;
        entry.target = "note";
        entry.text = text;
        entry.at = clock.now();
        return entry;
    }
    std::vector<std::string> damagedFiles() {
        std::vector<std::string> found;
        const auto names = files.list(paths.applicationSupport);
        for (const std::string& name : *names)
            if (name.find(".damaged-") != std::string::npos) found.push_back(name);
        return found;
    }

    Paths paths;
    FaultyFileIO files;
    ManualClock clock{*parsedIsoUtc("2026-11-23T08:00:00Z")};
    SystemRandom random;
    MemoryLog log;
    CaptureJournal journal{{files, paths, clock, random, log, {}}};
};

struct CaptureJournalTest : testing::Test {
    TemporaryFolder folder{TemporaryFolder::inMemory()};
};

TEST_F(CaptureJournalTest, CarriesACaptureFromItsFirstCharacterToItsOutcome) {
    Program program(folder);
    CaptureJournal& journal = program.journal;
    ASSERT_TRUE(journal.typed("a", "note", "buy"));
    ASSERT_TRUE(journal.typed("a", "note", "buy milk"));
    auto confirmed = program.capture("a", "buy milk\nand \"bread\" \xF0\x9F\x8D\x9E");
    confirmed.optionId = "C1";
    confirmed.optionName = "#general";
    ASSERT_TRUE(journal.confirmed(confirmed));
    ASSERT_TRUE(journal.typed("a", "note", "late")); // Written late, it is older than the Return.
    ASSERT_TRUE(journal.attempted("a", std::string("evidence\0x", 10)));
    auto entry = journal.entries()->front();
    EXPECT_EQ(entry.state, State::attempted);
    EXPECT_EQ(entry.text, confirmed.text);
    EXPECT_EQ(entry.optionName, "#general");
    EXPECT_EQ(entry.note, std::string("evidence\0x", 10));
    EXPECT_TRUE(entry.isOpen());
    ASSERT_TRUE(journal.delivered("a", "Quick Capture.md", "undo it"));
    ASSERT_TRUE(journal.failed("a", "told too late"));
    entry = journal.entries()->front();
    EXPECT_EQ(entry.state, State::delivered);
    EXPECT_EQ(entry.undo, "undo it");
    EXPECT_EQ(journal.lastUndoable()->id, "a");
    ASSERT_TRUE(journal.undone("a"));
    EXPECT_FALSE(journal.lastUndoable());
    namespace fs = std::filesystem;
    EXPECT_EQ(fs::status(journal.path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

// What somebody is told is kept has to outlast a power cut, and nothing else has to wait for the disk's own pace.
TEST_F(CaptureJournalTest, FlushesWhatIsPromised) {
    Program program(folder);
    CaptureJournal& journal = program.journal;
    const auto isFlushed = [&](const FileIO::Answer<void>& written) {
        EXPECT_TRUE(written);
        return program.files.wasFlushed.load();
    };
    EXPECT_FALSE(isFlushed(journal.typed("a", "note", "x")));
    EXPECT_TRUE(isFlushed(journal.confirmed(program.capture("a", "x"))));
    EXPECT_TRUE(isFlushed(journal.attempted("a", "evidence")));
    EXPECT_FALSE(isFlushed(journal.delivered("a", "there", "")));
}

TEST_F(CaptureJournalTest, OnlyTheNextProgramFindsWhatAnEndedOneLeft) {
    auto first = std::make_unique<Program>(folder);
    ASSERT_TRUE(first->journal.confirmed(first->capture("a", "confirmed")));
    ASSERT_TRUE(first->journal.typed("b", "note", "being typed"));
    ASSERT_TRUE(first->journal.confirmed(first->capture("c", "arrived")));
    ASSERT_TRUE(first->journal.delivered("c", "there", ""));
    Program second(folder);
    EXPECT_TRUE(second.journal.adoptOrphans().empty()) << "the first one still runs";
    first.reset();
    const auto orphans = second.journal.adoptOrphans();
    ASSERT_EQ(orphans.size(), 2U);
    EXPECT_EQ(orphans[0].text + ", " + orphans[1].text, "confirmed, being typed");
    EXPECT_TRUE(second.journal.adoptOrphans().empty()) << "they are its own now";
    Program third(folder);
    EXPECT_TRUE(third.journal.adoptOrphans().empty());
}

TEST_F(CaptureJournalTest, TwoProgramsThatStartAtOnceShareNoOrphan) {
    {
        Program ended(folder);
        for (int i = 0; i < 50; ++i) ASSERT_TRUE(ended.journal.typed(std::to_string(i), "note", "x"));
    }
    Program one(folder);
    Program two(folder);
    std::vector<CaptureJournal::Entry> ones, twos;
    std::thread other([&] { twos = two.journal.adoptOrphans(); });
    ones = one.journal.adoptOrphans();
    other.join();
    EXPECT_EQ(ones.size() + twos.size(), 50U);
}

// A killed program, or the disk, may leave anything; whatever is whole is read, and what is not is kept aside.
TEST_F(CaptureJournalTest, DamageCostsOnlyWhatIsDamaged) {
    std::string whole;
    {
        Program program(folder);
        for (const char* id : {"a", "b", "c"})
            ASSERT_TRUE(program.journal.confirmed(program.capture(id, std::string("text of ") + id)));
        whole = *program.files.read(program.journal.path());
    }
    const auto countReadable = [&](const std::string& bytes, bool expectsDamage) {
        const TemporaryFolder place(TemporaryFolder::inMemory());
        Program writer(place);
        EXPECT_TRUE(writer.files.writeAtomic(writer.journal.path(), bytes, privateFileMode));
        Program reader(place);
        EXPECT_EQ(reader.damagedFiles().empty(), !expectsDamage);
        const std::size_t readable = reader.journal.entries()->size();
        // It can be written and read on, and the next program finds no more damage.
        EXPECT_TRUE(reader.journal.typed("new", "note", "goes on"));
        EXPECT_EQ(reader.journal.entries()->size(), readable + 1);
        EXPECT_EQ(Program(place).damagedFiles().size(), expectsDamage ? 1U : 0U);
        return readable;
    };
    EXPECT_EQ(countReadable(whole, false), 3U);
    for (const std::size_t cut : {1UL, 5UL, 20UL})
        EXPECT_EQ(countReadable(whole.substr(0, whole.size() - cut), true), 2U);
    for (std::size_t at = 0; at < whole.size(); at += 7) {
        std::string flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x20);
        EXPECT_EQ(countReadable(flipped, true), 2U) << "byte " << at;
    }
    EXPECT_EQ(countReadable(whole.substr(0, whole.size() - 9) + whole, true), 3U) << "half a record before whole ones";
    EXPECT_EQ(countReadable("not a journal at all", true), 0U);
    EXPECT_EQ(countReadable("", false), 0U);
    EXPECT_EQ(countReadable("SWJ1\xFF\xFF\xFF\xFF", true), 0U) << "a length that nothing could have";
}

TEST_F(CaptureJournalTest, ShrinksToWhatStillMatters) {
    Program program(folder);
    CaptureJournal& journal = program.journal;
    const std::string draft(5000, 'x');
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(journal.typed("long", "note", draft + std::to_string(i)));
    EXPECT_LT(*program.files.size(journal.path()), CaptureJournal::compactAfter + 10'000);
    EXPECT_LT(program.files.operations, 1030) << "written anew for every half megabyte, not for every word";
    EXPECT_EQ(journal.entries()->front().text, draft + "999");

    for (int i = 0; i < 10; ++i) {
        program.clock.advance(std::chrono::minutes(1));
        const std::string id = "c" + std::to_string(i);
        ASSERT_TRUE(journal.cancelled(id, "note", "cancelled " + id));
        ASSERT_TRUE(journal.confirmed(program.capture("d" + id, "delivered")));
        ASSERT_TRUE(journal.delivered("d" + id, "there", i < 5 ? "undo" : ""));
        if (i % 2 == 0) {
            ASSERT_TRUE(journal.recorded("d" + id));
        }
    }
    ASSERT_TRUE(journal.compact());
    const auto ids = [&] {
        std::string all;
        const auto entries = journal.entries();
        for (const auto& entry : *entries) all += entry.id + " ";
        return all;
    };
    EXPECT_EQ(ids(), "long dc0 dc1 dc2 dc3 dc4 c5 dc5 c6 c7 dc7 c8 c9 dc9 ")
        << "open, not in the history yet, still to be undone, lately cancelled";
    const auto offers = journal.cancelledTexts("note");
    ASSERT_EQ(offers.size(), 5U);
    EXPECT_EQ(offers.front().text, "cancelled c9");
    ASSERT_TRUE(journal.recorded("c9"));
    EXPECT_EQ(journal.cancelledTexts("note").front().text, "cancelled c8") << "taken up again";
    EXPECT_TRUE(journal.cancelledTexts("slack").empty()) << "another target's";
    program.clock.advance(std::chrono::hours(25));
    ASSERT_TRUE(journal.compact());
    EXPECT_EQ(ids(), "long dc1 dc3 c5 dc5 c6 c7 dc7 c8 dc9 ") << "too old to be undone";
    ASSERT_TRUE(journal.forgetFinished());
    EXPECT_EQ(ids(), "long ");
    ASSERT_TRUE(journal.failed("c9", "a late word"));
    EXPECT_EQ(ids(), "long ") << "of what is forgotten";
}

TEST_F(CaptureJournalTest, WhatIsWrittenAnewSaysTheSame) {
    Program program(folder);
    CaptureJournal& journal = program.journal;
    for (const char* id : {"confirmed", "attempted", "delivered", "failed", "undone", "recorded"})
        ASSERT_TRUE(journal.confirmed(program.capture(id, std::string("text of ") + id)));
    for (const char* id : {"attempted", "delivered", "undone", "recorded"})
        ASSERT_TRUE(journal.attempted(id, "evidence"));
    for (const char* id : {"delivered", "undone", "recorded"}) ASSERT_TRUE(journal.delivered(id, "there", "undo it"));
    ASSERT_TRUE(journal.failed("failed", "why"));
    ASSERT_TRUE(journal.undone("undone"));
    ASSERT_TRUE(journal.recorded("recorded"));
    ASSERT_TRUE(journal.typed("typing", "slack", "half"));
    ASSERT_TRUE(journal.cancelled("cancelled", "slack", "not now"));
    const auto told = [&] {
        std::string all;
        const auto entries = journal.entries();
        for (const auto& e : *entries)
            all += e.id + "|" + e.target + "|" + e.text + "|" + std::to_string(static_cast<int>(e.state)) + "|"
                   + std::to_string(e.session) + "|" + isoUtc(e.at) + "|" + e.note.value_or("none") + "|" + e.receipt
                   + "|" + e.undo + "|" + e.error + "|" + std::to_string(e.isRecorded) + "\n";
        return all;
    };
    const std::string before = told();
    const auto size = *program.files.size(journal.path());
    ASSERT_TRUE(journal.compact());
    EXPECT_EQ(told(), before);
    EXPECT_LE(*program.files.size(journal.path()), size);
}

TEST_F(CaptureJournalTest, KeepsForConvenienceWhatIsStatedAndNoLonger) {
    Program program(folder);
    CaptureJournal& journal = program.journal;
    ASSERT_TRUE(journal.cancelled("c", "note", "not now"));
    program.clock.advance(std::chrono::seconds(1));
    ASSERT_TRUE(journal.cancelled("same", "note", "not now"));
    const auto offers = journal.cancelledTexts("note");
    ASSERT_EQ(offers.size(), 1U) << "the same text";
    EXPECT_EQ(offers.front().id, "same");
    program.clock.advance(CaptureJournal::keptCancelledFor - std::chrono::seconds(1));
    ASSERT_TRUE(journal.compact());
    ASSERT_EQ(journal.entries()->size(), 1U) << "the other one is a week old";
    EXPECT_EQ(journal.entries()->front().id, "same");

    for (std::size_t i = 0; i < CaptureJournal::keptUndoable + 3; ++i) { // All within one moment.
        const std::string id = std::to_string(i);
        ASSERT_TRUE(journal.confirmed(program.capture(id, "x")));
        ASSERT_TRUE(journal.delivered(id, "there", "undo"));
        ASSERT_TRUE(journal.recorded(id));
    }
    EXPECT_EQ(journal.lastUndoable()->id, std::to_string(CaptureJournal::keptUndoable + 2)) << "the last one written";
    ASSERT_TRUE(journal.compact());
    EXPECT_EQ(journal.entries()->size(), CaptureJournal::keptUndoable + 1);
}

TEST_F(CaptureJournalTest, AppendsOfTwoProgramsSurviveARewrite) {
    Program one(folder);
    Program two(folder);
    std::thread writer([&] {
        for (int i = 0; i < 300; ++i) EXPECT_TRUE(one.journal.typed("one" + std::to_string(i), "note", "x"));
    });
    for (int i = 0; i < 60; ++i) {
        EXPECT_TRUE(two.journal.typed("two" + std::to_string(i), "note", "y"));
        EXPECT_TRUE(two.journal.compact());
    }
    writer.join();
    EXPECT_EQ(one.journal.entries()->size(), 360U);
}

TEST_F(CaptureJournalTest, AFullDiskGivesUpItsReserveForAConfirmedText) {
    int freed = 0;
    Program program(folder);
    CaptureJournal journal({program.files, program.paths, program.clock, program.random, program.log, [&] {
                                ++freed;
                                program.files.failAt = 0;
                                return true;
                            }});
    for (const int code : {ENOSPC, EDQUOT}) {
        freed = 0;
        program.files.code = code;
        program.files.failAt = program.files.operations + 1;
        EXPECT_TRUE(journal.confirmed(program.capture("a", "kept"))) << code;
        EXPECT_EQ(freed, 1);
    }
    program.files.code = EIO;
    program.files.failAt = program.files.operations + 1;
    EXPECT_FALSE(journal.confirmed(program.capture("b", "not kept"))) << "and says so";
    EXPECT_EQ(freed, 1);
}
} // namespace
} // namespace snipwren
