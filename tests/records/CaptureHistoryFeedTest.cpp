#include "records/CaptureHistoryFeed.h"

#include "base/NotificationCenter.h"
#include "base/Random.h"
#include "store/StoreFixture.h"

namespace snipwren {
namespace {
class CaptureHistoryFeedTest : public StoreFixture {
protected:
    void SetUp() override {
        manager.open();
        history.open();
        ASSERT_TRUE(journal.open());
    }
    void breakHistory() { manager.executeNonQuery("DROP TABLE capture_history;"); }
    void deliver(const std::string& id) {
        CaptureJournal::Entry capture;
        capture.id = id;
        capture.target = "note";
        capture.text = "text of " + id;
        capture.at = clock.now();
        ASSERT_TRUE(journal.confirmed(capture));
        ASSERT_TRUE(journal.delivered(id, "there", ""));
        feed.record(capture, true);
        feedQueue.runReady();
    }
    std::size_t recorded() { return history.recentEntries("").size(); }

    ManualQueue mainQueue{"main", clock};
    ManualQueue feedQueue{"history", clock};
    NotificationCenter notifications{mainQueue};
    SystemRandom random;
    DatabaseManager manager{dependencies()};
    CaptureHistoryStore history{{.database = manager, .clock = clock, .notifications = notifications, .log = log}};
    CaptureJournal journal{{files, paths, clock, random, log, {}}};
    CaptureHistoryFeed feed{{history, journal, feedQueue}};
};

TEST_F(CaptureHistoryFeedTest, TriesAgainForAsLongAsItTakes) {
    breakHistory();
    deliver("a");
    deliver("b");
    feedQueue.advance(std::chrono::minutes(20));
    history.open();
    EXPECT_EQ(recorded(), 0U);
    feedQueue.advance(CaptureHistoryFeed::longestRetry);
    EXPECT_EQ(recorded(), 2U);
    const auto entries = journal.entries();
    for (const auto& entry : *entries) EXPECT_TRUE(entry.isRecorded) << entry.id;

    // What went well is over: the next fault is waited for as shortly as the first.
    breakHistory();
    deliver("c");
    history.open();
    feedQueue.advance(CaptureHistoryFeed::firstRetry);
    EXPECT_EQ(recorded(), 1U);
}
} // namespace
} // namespace snipwren
