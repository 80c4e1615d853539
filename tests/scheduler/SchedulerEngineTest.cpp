#include "scheduler/SchedulerEngine.h"

#include <limits>

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using Kind = ScheduledItem::Kind;

struct ManualSchedulerClocks final : SchedulerClocks {
    TimePoint wallNow{seconds(1'800'000'000)};
    Duration bootNow{hours(3)};
    std::string boot = "first boot";
    TimePoint wall() const override { return wallNow; }
    Duration sinceBoot() const override { return bootNow; }
    std::string bootId() const override { return boot; }
    /// Time passes; a suspended machine is no different, since both clocks count sleep.
    void pass(Duration time) {
        wallNow += time;
        bootNow += time;
    }
    void reboot(Duration off) {
        wallNow += off;
        bootNow = seconds(20);
        boot += "+";
    }
};

struct RecordingOutlet final : NotificationOutlet {
    bool works = true;
    std::vector<std::pair<std::string, Duration>> shown;
    bool show(const ScheduledItem& item, Duration lateBy) override {
        if (works) shown.emplace_back(item.id, lateBy);
        return works;
    }
};

struct RecordingListener final : SchedulerListener {
    int changes = 0;
    std::vector<std::pair<std::string, bool>> fired;
    void pendingDidChange() override { ++changes; }
    void didFire(const ScheduledItem& item, bool late) override { fired.emplace_back(item.id, late); }
};

struct SchedulerEngineTest : testing::Test {
    TemporaryFolder folder;
    ManualSchedulerClocks clocks;
    RecordingOutlet outlet;
    RecordingListener listener;
    MemoryLog log;
    std::optional<SchedulerStore> store;
    std::unique_ptr<SchedulerEngine> engine;

    SchedulerEngineTest() { restart(); }
    /// What kill -9 and a new start come to: nothing but the file remains.
    void restart() {
        engine.reset();
        store.reset();
        store = std::move(*SchedulerStore::open(folder.file("scheduler.db")));
        engine =
            std::make_unique<SchedulerEngine>(SchedulerEngine::Dependencies{*store, clocks, outlet, listener, log});
        ASSERT_TRUE(engine->load());
    }
    ScheduledItem timer(const std::string& id, Duration interval) const {
        return {id, "T", "tea", "", "done", true, Kind::interval, interval, clocks.wallNow + interval, {}, {}};
    }
    ScheduledItem alarm(const std::string& id, TimePoint at) const {
        return {id, "A", "meds", "", "meds", true, Kind::moment, {}, at, {{"sw_fireAt", 1.5}}, {{"ok", "OK"}}};
    }
    std::vector<std::string> pendingIds() const {
        std::vector<std::string> ids;
        for (const auto& item : engine->pending()) ids.push_back(item.id);
        return ids;
    }
    using Shown = std::vector<std::pair<std::string, Duration>>;
    using Ids = std::vector<std::string>;
};
} // namespace

TEST_F(SchedulerEngineTest, FiresEachOnceAtItsMoment) {
    ASSERT_TRUE(engine->add(timer("tea", minutes(5))));
    ASSERT_TRUE(engine->add(alarm("meds", clocks.wallNow + minutes(2))));
    ASSERT_TRUE(engine->add({"now", "U", "update", "", "", false, Kind::atOnce, {}, {}, {}, {}}));
    EXPECT_EQ(pendingIds(), (Ids{"meds", "tea"})) << "what fires at once is never pending";
    engine->sweep();
    EXPECT_EQ(outlet.shown, (Shown{{"now", {}}}));
    EXPECT_EQ(engine->deadlines().sinceBoot, clocks.bootNow + minutes(5));
    EXPECT_EQ(engine->deadlines().wall, clocks.wallNow + minutes(2));
    clocks.pass(minutes(5) - Duration(1));
    engine->sweep();
    EXPECT_EQ(outlet.shown.back(), (std::pair<std::string, Duration>("meds", minutes(3) - Duration(1))));
    clocks.pass(Duration(1));
    engine->sweep();
    engine->sweep();
    EXPECT_EQ(outlet.shown.size(), 3U);
    EXPECT_EQ(listener.fired,
              (std::vector<std::pair<std::string, bool>>{{"now", false}, {"meds", true}, {"tea", false}}));
    restart();
    engine->sweep();
    EXPECT_EQ(outlet.shown.size(), 3U);
    EXPECT_FALSE(engine->deadlines().wall || engine->deadlines().sinceBoot);
}

TEST_F(SchedulerEngineTest, AKillLosesNothingAndWhatWasMissedComesLateOnce) {
    ASSERT_TRUE(engine->add(timer("due", minutes(1))));
    ASSERT_TRUE(engine->add(timer("future", hours(1))));
    restart();
    clocks.pass(minutes(10));
    restart();
    engine->sweep();
    EXPECT_EQ(outlet.shown, (Shown{{"due", minutes(9)}}));
    EXPECT_EQ(pendingIds(), Ids{"future"});
    restart();
    engine->sweep();
    EXPECT_EQ(outlet.shown.size(), 1U);
    EXPECT_EQ(engine->pending()[0], [&] {
        ScheduledItem item = timer("future", hours(1));
        item.fireAt = clocks.wallNow + minutes(50);
        return item;
    }());
}

TEST_F(SchedulerEngineTest, ClockStepsMoveAlarmsAndNotTimers) {
    ASSERT_TRUE(engine->add(timer("timer", hours(2))));
    ASSERT_TRUE(engine->add(alarm("alarm", clocks.wallNow + hours(2))));
    clocks.wallNow += hours(1); // Set forward: the alarm comes nearer.
    engine->sweep();
    EXPECT_TRUE(outlet.shown.empty());
    for (const auto& item : engine->pending())
        EXPECT_EQ(item.fireAt - clocks.wallNow, item.id == "alarm" ? hours(1) : hours(2)) << item.id;
    clocks.wallNow -= hours(3); // Set back.
    engine->sweep();
    EXPECT_EQ(engine->deadlines().wall, clocks.wallNow + hours(4));
    clocks.pass(hours(2));
    engine->sweep();
    EXPECT_EQ(outlet.shown, (Shown{{"timer", {}}}));
    clocks.wallNow += hours(5);
    engine->sweep();
    EXPECT_EQ(outlet.shown.back(), (std::pair<std::string, Duration>("alarm", hours(3))));
}

TEST_F(SchedulerEngineTest, ATimerOutlivesAReboot) {
    ASSERT_TRUE(engine->add(timer("short", minutes(5))));
    ASSERT_TRUE(engine->add(timer("long", hours(1))));
    clocks.wallNow += minutes(2); // A step that the timers must not count ...
    engine->sweep();
    clocks.reboot(minutes(10));
    restart();
    engine->sweep();
    EXPECT_EQ(outlet.shown, (Shown{{"short", minutes(5)}})) << "... also not after the machine was started again";
    EXPECT_EQ(engine->deadlines().wall, clocks.wallNow + minutes(50));
    EXPECT_FALSE(engine->deadlines().sinceBoot);
}

TEST_F(SchedulerEngineTest, ARequestThatTravelledLongCountsFromWhenItWasMade) {
    const ScheduledItem item = timer("tea", minutes(1));
    clocks.pass(std::chrono::milliseconds(150)); // The scheduler had to be started first.
    ASSERT_TRUE(engine->add(item));
    EXPECT_EQ(engine->pending()[0].fireAt, item.fireAt);
    // A fire date that does not fit the interval is not believed.
    for (const Duration wrong : {Duration(hours(5)), Duration(hours(-1))}) {
        ScheduledItem odd = item;
        odd.fireAt += wrong;
        ASSERT_TRUE(engine->add(odd));
        EXPECT_EQ(engine->pending()[0].fireAt, clocks.wallNow + minutes(1));
    }
}

TEST_F(SchedulerEngineTest, WithoutANotificationServiceItWaitsForOne) {
    ASSERT_TRUE(engine->add(timer("tea", minutes(1))));
    ASSERT_TRUE(engine->add(timer("old", minutes(1))));
    outlet.works = false;
    clocks.pass(minutes(1));
    engine->sweep();
    engine->sweep();
    EXPECT_EQ(listener.fired.size(), 2U) << "our own panel hears of it at its moment, once";
    EXPECT_TRUE(pendingIds().empty());
    EXPECT_FALSE(engine->deadlines().sinceBoot) << "nothing to wake up for";
    restart();
    ASSERT_TRUE(*engine->remove("old"));
    outlet.works = true;
    clocks.pass(minutes(3));
    engine->serviceDidAppear();
    engine->serviceDidAppear();
    EXPECT_EQ(outlet.shown, (Shown{{"tea", minutes(3)}}));
    EXPECT_EQ(listener.fired.size(), 2U);

    ASSERT_TRUE(engine->add(timer("stale", minutes(1))));
    outlet.works = false;
    clocks.pass(minutes(1));
    engine->sweep();
    outlet.works = true;
    clocks.pass(hours(25));
    engine->serviceDidAppear();
    EXPECT_EQ(outlet.shown.size(), 1U) << "a day later nobody wants it";
}

TEST_F(SchedulerEngineTest, ReplacesAndRemovesByIdentifier) {
    ASSERT_TRUE(engine->add(timer("tea", minutes(1))));
    ASSERT_TRUE(engine->add(timer("tea", minutes(3))));
    EXPECT_EQ(engine->deadlines().sinceBoot, clocks.bootNow + minutes(3));
    restart();
    EXPECT_TRUE(*engine->remove("tea"));
    EXPECT_FALSE(*engine->remove("tea"));
    restart();
    EXPECT_TRUE(pendingIds().empty());
}

TEST_F(SchedulerEngineTest, RefusesWhatIsOutOfBounds) {
    auto refused = [&](auto change) {
        ScheduledItem item = timer("x", minutes(1));
        change(item);
        return !engine->add(item);
    };
    EXPECT_TRUE(refused([](auto& item) { item.id.clear(); }));
    EXPECT_TRUE(refused([](auto& item) { item.id.assign(257, 'x'); }));
    EXPECT_TRUE(refused([](auto& item) { item.body.assign(16'385, 'x'); }));
    EXPECT_TRUE(refused([](auto& item) { item.interval = Duration(-1); }));
    EXPECT_TRUE(refused([](auto& item) { item.interval = Duration::max(); }));
    EXPECT_TRUE(refused([](auto& item) { item.fireAt = TimePoint::min(); }));
    EXPECT_TRUE(refused([](auto& item) { item.fireAt = TimePoint::max(); }));
    EXPECT_TRUE(refused([](auto& item) { item.actions.resize(9); }));
    EXPECT_TRUE(pendingIds().empty());
}

TEST(ScheduledItemCodec, ReadsWhatItWroteAndNothingElse) {
    const std::vector<ScheduledItem> items{
        {"a", "T", "täa", "sub", "", true, Kind::interval, minutes(3), TimePoint(Duration(-5)), {{"k", -0.5}}, {}},
        {"", "", "", "", "two\nlines", false, Kind::moment, {}, TimePoint::max(), {}, {{"id", "title"}, {"", ""}}}};
    const std::string bytes = ScheduledItemCodec::encode(items);
    EXPECT_EQ(ScheduledItemCodec::decodeList(bytes), items);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(ScheduledItemCodec::decodeList(std::string_view(bytes).substr(0, length))) << length;
    EXPECT_FALSE(ScheduledItemCodec::decodeList(bytes + "x"));
    EXPECT_FALSE(ScheduledItemCodec::decode(bytes)) << "two are not one";
    std::string broken = ScheduledItemCodec::encode(items[0]);
    broken[broken.find("täa") + 1] = '\x80';
    EXPECT_FALSE(ScheduledItemCodec::decode(broken)) << "no UTF-8";
}
} // namespace snipwren
