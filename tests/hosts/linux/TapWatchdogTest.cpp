#include "hosts/linux/x11/TapWatchdog.h"

#include <atomic>
#include <chrono>
#include <future>

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TEST(TapWatchdog, ReleasesAnAnswerThatHangsOnceAndNoOther) {
    using Moment = std::chrono::steady_clock::time_point;
    constexpr std::chrono::milliseconds limit(20);
    std::atomic<int> releases = 0;
    std::atomic<Moment> releasedAt = Moment();
    std::promise<void> released;
    TapWatchdog watchdog(limit, [&] {
        releasedAt = std::chrono::steady_clock::now();
        if (++releases == 1) released.set_value();
    });
    ASSERT_TRUE(watchdog.start());
    // For several times the limit: its timer runs out while an answer that has only just begun is on its way.
    const Moment end = std::chrono::steady_clock::now() + 5 * limit;
    for (Moment begun = Moment(); begun < end;) {
        begun = std::chrono::steady_clock::now();
        watchdog.begin();
        ASSERT_EQ(watchdog.end(), releases == 0);
        if (releases == 0) continue;
        ASSERT_GE(releasedAt.load() - begun, limit) << "too soon";
        GTEST_SKIP() << "the machine stood still for longer than the limit";
    }
    watchdog.begin();
    released.get_future().wait();
    EXPECT_FALSE(watchdog.end()) << "the answer came too late";
    watchdog.begin();
    EXPECT_TRUE(watchdog.end()) << "the next one is judged anew";
    EXPECT_EQ(releases, 1);
}
} // namespace
} // namespace snipwren
