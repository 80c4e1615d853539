#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "base/BoundedCall.h"
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

TEST(ThreadQueue, EndsOnceAndSaysSo) {
    ThreadQueue queue("test");
    EXPECT_TRUE(queue.finish(milliseconds(0))) << "it never began";
    ThreadQueue started("test");
    started.start();
    started.start();
    std::atomic<bool> isHeld = true;
    started.async([&] {
        while (isHeld) std::this_thread::yield();
    });
    EXPECT_FALSE(started.finish(milliseconds(1)));
    isHeld = false;
    EXPECT_TRUE(started.finish(std::chrono::seconds(10)));
}

// What a task holds may use the queue while it goes.
TEST(ThreadQueue, ReleasesATaskOutsideItsLock) {
    ThreadQueue queue("test");
    queue.start();
    std::atomic<bool> wasReleased = false;
    std::shared_ptr<int> held(new int(0), [&](const int* number) {
        delete number;
        queue.async([&] { wasReleased = true; });
    });
    queue.async([held = std::move(held)] {});
    while (!wasReleased) std::this_thread::yield();
}

TEST(ThreadQueue, WakesForTheNearestMoment) {
    ThreadQueue queue("test");
    queue.start();
    queue.asyncAfter(std::chrono::hours(1), [] {});
    for (int i = 0; i < 20; ++i) {
        queue.sync([] {}); // Then it sleeps, until the hour is over.
        std::atomic<bool> ran = false;
        queue.asyncAfter(milliseconds(1), [&] { ran = true; });
        while (!ran) std::this_thread::yield();
    }
}

TEST(ThreadQueue, RunUntilEndsWhenItIsDoneOrTheTimeIsOver) {
    ThreadQueue queue("main", ThreadQueue::Runs::inRunCall);
    queue.asyncAfter(std::chrono::hours(1), [] {});
    EXPECT_FALSE(queue.runUntil([] { return false; }, milliseconds(5)));
    int asked = 0;
    int ran = 0;
    // The question itself brings the work along, as one about another queue does.
    EXPECT_TRUE(queue.runUntil(
        [&] {
            if (++asked == 1) queue.async([&] { ++ran; });
            return ran > 0;
        },
        std::chrono::hours(1)));
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

TEST(TaskPool, UsesAsManyThreadsAsItMayAndNoMore) {
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::atomic<int> done = 0;
    TaskPool pool("test", 2);
    std::atomic<bool> isOver = false;
    pool.start([&] { isOver = true; });
    while (!isOver) std::this_thread::yield();
    // One thread is idle or about to be: that is enough for the first of two tasks that wait for each other.
    std::atomic<int> met = 0;
    for (int i = 0; i < 2; ++i)
        pool.start([&] {
            ++met;
            while (met < 2) std::this_thread::yield();
        });
    for (int i = 0; i < 50; ++i)
        pool.start([&] {
            const int now = ++running;
            if (now > most) most = now;
            for (int turn = 0; turn < 100; ++turn) std::this_thread::yield();
            --running;
            ++done;
        });
    pool.finish();
    EXPECT_EQ(done, 50);
    EXPECT_LE(most, 2);
}

TEST(TaskPool, ReleasesATaskOutsideItsLock) {
    std::atomic<bool> wasReleased = false;
    TaskPool pool("test", 1);
    std::shared_ptr<int> held(new int(0), [&](const int* number) {
        delete number;
        pool.start([&] { wasReleased = true; });
    });
    pool.start([held = std::move(held)] {});
    while (!wasReleased) std::this_thread::yield();
}

TEST(CallUnlessStopped, RunsWhatHasBegunToItsEndAndNothingElse) {
    ThreadQueue queue("main");
    std::stop_source stop;
    std::atomic<int> runs = 0;
    // Not yet begun when it is stopped: it never runs.
    std::thread caller([&] { EXPECT_FALSE(callUnlessStopped(queue, stop.get_token(), [&] { return ++runs; })); });
    stop.request_stop();
    caller.join();
    queue.start();
    queue.sync([] {});
    EXPECT_EQ(runs, 0);

    std::stop_source later;
    const auto answer = callUnlessStopped(queue, later.get_token(), [&] {
        later.request_stop(); // In the middle of it.
        return ++runs;
    });
    EXPECT_EQ(answer, 1);
    EXPECT_EQ(queue.call([&] { return callUnlessStopped(queue, later.get_token(), [&] { return ++runs; }); }), 2)
        << "on the queue itself it runs at once";
}
} // namespace
} // namespace snipwren
