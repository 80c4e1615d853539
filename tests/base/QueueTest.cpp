#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/TaskPool.h"
#include "base/ThreadQueue.h"

namespace snipwren {
namespace {
using std::chrono::milliseconds;

TEST(ThreadQueue, RunsTasksOfManyThreadsOneAtATimeAndInOrder) {
    ThreadQueue queue("test");
    queue.start();
    std::vector<std::vector<int>> seen(4);
    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < seen.size(); ++poster)
        posters.emplace_back([&, poster] {
            for (int i = 0; i < 500; ++i) queue.async([&seen, poster, i] { seen[poster].push_back(i); });
        });
    for (std::thread& poster : posters) poster.join();
    EXPECT_EQ(queue.call([&] { return seen[0].size() + seen[1].size() + seen[2].size() + seen[3].size(); }), 2000U);
    for (const auto& numbers : seen) EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST(ThreadQueue, ReadyTasksRunBeforeItEndsAndDelayedOnesDoNot) {
    std::atomic<int> ran = 0;
    {
        ThreadQueue queue("test");
        queue.asyncAfter(std::chrono::hours(1), [&] { ran += 100; });
        for (int i = 0; i < 10; ++i) queue.async([&] { ++ran; });
        queue.start();
    }
    EXPECT_EQ(ran, 10);
}

TEST(ManualQueue, RunsDelayedTasksAtTheirMoments) {
    ManualClock clock(TimePoint{});
    ManualQueue queue("test", clock);
    std::string order;
    queue.asyncAfter(milliseconds(20), [&] { order += "b" + std::to_string(clock.now().time_since_epoch().count()); });
    queue.asyncAfter(milliseconds(10), [&] {
        order += "a";
        queue.asyncAfter(milliseconds(5), [&] { order += "c"; });
    });
    const auto cancelled = queue.asyncAfter(milliseconds(1), [&] { order += "x"; });
    EXPECT_TRUE(queue.cancel(cancelled));
    EXPECT_FALSE(queue.cancel(cancelled));
    queue.advance(milliseconds(30));
    EXPECT_EQ(order, "acb20000");
}

TEST(NotificationCenter, DeliversOnTheMainQueueUntilTheSubscriptionEnds) {
    ManualClock clock(TimePoint{});
    ManualQueue main("main", clock);
    NotificationCenter center(main);
    std::vector<std::string> seen;
    NotificationCenter::Subscription second;
    const auto first = center.observe("Event", [&](const UserInfo& info) {
        seen.push_back("first " + text(info, "key"));
        second.reset(); // Ends the other in the middle of the delivery.
    });
    second = center.observe("Event", [&](const UserInfo&) { seen.push_back("second"); });
    center.post("Event", {{"key", "value"}, {"saved", true}});
    EXPECT_TRUE(seen.empty());
    main.runReady();
    EXPECT_EQ(seen, std::vector<std::string>{"first value"});
    EXPECT_FALSE(flag({{"saved", std::string("true")}}, "saved")) << "a text is not a truth value";
}

TEST(TaskPool, RunsSideBySideAndFinishesWhatWasStarted) {
    std::atomic<int> waiting = 0;
    std::atomic<int> done = 0;
    TaskPool pool("test", 2);
    for (int i = 0; i < 2; ++i)
        pool.start([&] {
            ++waiting;
            while (waiting < 2) std::this_thread::yield(); // Each waits for the other: one thread would hang.
            ++done;
        });
    pool.finish();
    EXPECT_EQ(done, 2);
    pool.start([&] { ++done; });
    EXPECT_EQ(done, 2) << "nothing starts after the end";
}
} // namespace
} // namespace snipwren
