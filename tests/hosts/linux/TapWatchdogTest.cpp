#include "hosts/linux/x11/TapWatchdog.h"

#include <atomic>
#include <chrono>
#include <future>

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TEST(TapWatchdog, ReleasesAnAnswerThatHangsOnceAndNoOther) {
    using Moment = std::chrono::steady_clock::time_point;
    constexpr std::chrono::milliseconds limit(40);
    std::atomic<int> releases = 0;
    std::atomic<Moment> releasedAt = Moment();
    std::promise<void> released;
    TapWatchdog watchdog(limit, [&] {
        releasedAt = std::chrono::steady_clock::now();
        if (++releases == 1) released.set_value();
    });
    ASSERT_TRUE(watchdog.start());
    // Each answer takes most of the time it has, so the timer runs out in the middle of the next one.
    for (int i = 0; i < 8; ++i) {
        const Moment begun = std::chrono::steady_clock::now();
        watchdog.begin();
        while (std::chrono::steady_clock::now() < begun + 3 * limit / 4) std::this_thread::yield();
        if (watchdog.end()) continue;
        ASSERT_GE(releasedAt.load() - begun, limit) << "too soon";
        GTEST_SKIP() << "the machine stood still for longer than the limit";
    }
    ASSERT_EQ(releases, 0);
    watchdog.begin();
    released.get_future().wait();
    EXPECT_FALSE(watchdog.end()) << "the answer came too late";
    watchdog.begin();
    EXPECT_TRUE(watchdog.end()) << "the next one is judged anew";
    EXPECT_EQ(releases, 1);
}
} // namespace
} // namespace snipwren
