#include "records/CaptureHistoryStore.h"

#include "base/NotificationCenter.h"
#include "store/StoreFixture.h"

namespace snipwren {
namespace {
class CaptureHistoryStoreTest : public StoreFixture {
protected:
    void SetUp() override {
        manager.open();
        store.open();
        subscription =
            notifications.observe(CaptureHistoryStore::historyChangedNotification, [this](const UserInfo&) { ++told; });
    }
    std::string texts(std::string_view matching, int limit = 200) {
        std::string all;
        for (const auto& entry : store.recentEntries(matching, limit)) all += entry.text + " ";
        return all;
    }
    void record(const char* target, const char* text, bool success = true) {
        clock.advance(std::chrono::seconds(1));
        store.record(target, text, success);
    }

    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    NotificationCenter::Subscription subscription;
    DatabaseManager manager{dependencies()};
    CaptureHistoryStore store{{.database = manager, .clock = clock, .notifications = notifications, .log = log}};
    int told = 0;
};

TEST_F(CaptureHistoryStoreTest, RecordsFindsAndClears) {
    record("note", " \n ");
    mainQueue.runReady();
    EXPECT_EQ(told, 0) << "blank text leaves no trace";
    EXPECT_TRUE(store.recentEntries("").empty());

    record("note", " first\n");
    record("slack", "it's 100% \"done\"", false);
    EXPECT_EQ(told, 0);
    mainQueue.runReady();
    EXPECT_EQ(told, 2);
    const auto all = store.recentEntries("  ");
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].text, "it's 100% \"done\"");
    EXPECT_EQ(all[0].target, "slack");
    EXPECT_FALSE(all[0].success);
    EXPECT_TRUE(all[1].success);
    EXPECT_EQ(all[1].createdAt + std::chrono::seconds(1), all[0].createdAt);

    EXPECT_EQ(texts("sla"), "it's 100% \"done\" ") << "the target is searched, too";
    EXPECT_EQ(texts("FIRST"), "first ");
    EXPECT_EQ(texts("%"), texts("")) << "a wildcard";
    EXPECT_EQ(texts("fi_st"), "first ");
    EXPECT_EQ(texts("it's"), "it's 100% \"done\" ");
    EXPECT_EQ(texts("", 1), "it's 100% \"done\" ");
    EXPECT_EQ(texts("x' OR '1'='1"), "");

    store.clearAll();
    EXPECT_EQ(told, 3) << "told before it returns";
    EXPECT_TRUE(store.recentEntries("").empty());
}

TEST_F(CaptureHistoryStoreTest, KeepsTheNewestByTimeNotByNumber) {
    ASSERT_TRUE(manager.performRaw([&](Database& database) {
        const auto filled = database.transaction([&]() -> Result<void, DatabaseError> {
            for (int i = 0; i < CaptureHistoryStore::maxEntries; ++i)
                if (auto done =
                        database.run("INSERT INTO capture_history (target, text, created_at) VALUES (?, ?, ?);", "note",
                                     "t" + std::to_string(i), secondsSince1970(clock.now()) + (i == 7 ? -1 : i));
                    !done)
                    return done;
            return {};
        });
        EXPECT_TRUE(filled);
    }));
    clock.advance(std::chrono::hours(10));
    store.record("note", "newest", true);
    const auto rows = store.recentEntries("", CaptureHistoryStore::maxEntries + 10);
    ASSERT_EQ(rows.size(), 2000u);
    EXPECT_EQ(rows.front().text, "newest");
    EXPECT_EQ(rows.back().text, "t0");
    EXPECT_FALSE(std::ranges::any_of(rows, [](const auto& row) { return row.text == "t7"; })) << "the oldest";
}

TEST_F(CaptureHistoryStoreTest, StatisticsCountDeliveredCapturesOnly) {
    record("note", "one");
    record("slack", "two");
    record("timer", "three", false);
    const Calendar calendar = *Calendar::make("UTC", "en_US");
    const CaptureStats stats = store.stats(clock.now(), calendar);
    EXPECT_EQ(stats.totalCount, 2);
    EXPECT_EQ(stats.todayCount, 2);
    EXPECT_EQ(stats.lastTarget, "slack");
    EXPECT_EQ(stats.streakDays, 1);
}

TEST_F(CaptureHistoryStoreTest, AFaultIsLoggedWithoutTheTextAndStaysInside) {
    manager.executeNonQuery("CREATE TRIGGER refuse BEFORE INSERT ON capture_history BEGIN "
                            "SELECT RAISE(FAIL, 'refused'); END;");
    store.record("note", "my private words", true);
    EXPECT_TRUE(logged("❌ CaptureHistoryStore: insert failed: refused"));
    manager.executeNonQuery("DROP TABLE capture_history;");
    EXPECT_TRUE(store.recentEntries("words").empty());
    store.record("note", "my private words", true);
    for (const std::string& line : log.lines()) EXPECT_EQ(line.find("words"), std::string::npos) << line;
}
} // namespace
} // namespace snipwren
