#include "hosts/linux/x11/TapWatchdog.h"

#include <future>

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TEST(TapWatchdog, ReleasesAnAnswerThatHangsOnceAndNoOther) {
    std::atomic<int> releases = 0;
    std::promise<void> released;
    TapWatchdog watchdog(std::chrono::milliseconds(20), [&] {
        if (++releases == 1) released.set_value();
    });
    ASSERT_TRUE(watchdog.start());
    for (int i = 0; i < 100000; ++i) {
        watchdog.begin();
        ASSERT_TRUE(watchdog.end() || releases > 0);
        if (releases > 0) GTEST_SKIP() << "the machine stood still for longer than the limit";
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
