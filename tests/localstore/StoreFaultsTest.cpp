#include "base/NotificationCenter.h"
#include "records/CaptureHistoryStore.h"
#include "store/StoreFixture.h"
#include "support/FaultyFileSystem.h"

namespace snipwren {
namespace {
class StoreFaultsTest : public StoreFixture {
protected:
    StoreFaultsTest() { paths = Paths::under(memory.path()); }
    DatabaseManager::Dependencies faultyDependencies() {
        auto all = dependencies();
        all.options.fileSystem = FaultyFileSystem::name;
        return all;
    }
    std::vector<std::string> textsOnDisk() {
        DatabaseManager manager(dependencies());
        manager.open();
        EXPECT_TRUE(manager.isPersistent());
        EXPECT_EQ(manager.fetchRulesConfig().size(), 18u);
        EXPECT_EQ(manager.executeQuery("PRAGMA integrity_check;").front().at("integrity_check"), "ok");
        std::vector<std::string> texts;
        for (const auto& row : manager.executeQuery("SELECT text FROM capture_history ORDER BY id;"))
            texts.push_back(row.at("text"));
        return texts;
    }

    TemporaryFolder memory{TemporaryFolder::inMemory()};
    FaultyFileSystem disk;
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
};

TEST_F(StoreFaultsTest, WhateverWriteOfARecordFailsEarlierOnesStay) {
    std::size_t kept = 0;
    for (const int code : {SQLITE_IOERR_WRITE, SQLITE_FULL}) {
        for (const bool all : {false, true}) {
            for (int n = 0;; ++n) { // 0: nothing fails.
                disk.operations = 0;
                disk.failAt = 0;
                bool isLogged = false;
                {
                    DatabaseManager manager(faultyDependencies());
                    CaptureHistoryStore store(
                        {.database = manager, .clock = clock, .notifications = notifications, .log = log});
                    manager.open();
                    store.open();
                    const auto before = log.lines().size();
                    disk.operations = 0;
                    disk.failAt = n;
                    disk.failAllFromThen = all;
                    disk.code = code;
                    clock.advance(std::chrono::seconds(1));
                    store.record("note", "text " + std::to_string(kept), true);
                    const auto lines = log.lines();
                    isLogged = std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                                           [](const auto& line) { return line.find("insert failed") != line.npos; });
                }
                const bool reached = disk.operations >= n;
                disk.failAt = 0;
                kept += !isLogged;
                const auto texts = textsOnDisk();
                ASSERT_EQ(texts.size(), kept) << "operation " << n << (all ? " and later" : "") << ", code " << code;
                for (std::size_t i = 0; i < kept; ++i) ASSERT_EQ(texts[i], "text " + std::to_string(i));
                if (!reached) break;
            }
        }
    }
    EXPECT_GT(kept, 4u);
}

TEST_F(StoreFaultsTest, WhateverWriteOfAFirstStartFailsTheRulesAreThere) {
    for (const bool all : {false, true}) {
        for (int n = 1;; ++n) {
            const TemporaryFolder own(TemporaryFolder::inMemory());
            paths = Paths::under(own.path());
            disk.operations = 0;
            disk.failAt = n;
            disk.failAllFromThen = all;
            {
                DatabaseManager manager(faultyDependencies());
                manager.open();
                ASSERT_EQ(manager.fetchExclusionList().size(), 7u) << "operation " << n;
                ASSERT_EQ(manager.fetchRulesConfig().size(), 18u) << "operation " << n;
                ASSERT_TRUE(manager.saveSyncMetadata("key", "value") || manager.isPersistent());
            }
            const bool reached = disk.operations >= n;
            disk.failAt = 0;
            DatabaseManager again(dependencies());
            again.open();
            ASSERT_TRUE(again.isPersistent()) << "operation " << n;
            ASSERT_EQ(again.fetchRulesConfig().size(), 18u) << "operation " << n;
            if (!reached) break;
        }
    }
}
} // namespace
} // namespace snipwren
