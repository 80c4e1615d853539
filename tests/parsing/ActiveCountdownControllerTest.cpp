#include "parsing/scheduling/ActiveCountdownController.h"

#include <gtest/gtest.h>

#include "support/SchedulingRig.h"

namespace snipwren {
namespace {
using std::chrono::microseconds;
using std::chrono::minutes;
using std::chrono::seconds;

struct ActiveCountdownControllerTest : testing::Test, SchedulingRig {
    ManualQueue workQueue{"work", clock};
    ActiveCountdownController controller{{scheduler, fallback, mainQueue, workQueue, clock, notifications}};
    std::vector<std::string> shown;

    void start() {
        controller.start([this](const auto& countdown) { shown.push_back(countdown ? countdown->text : "-"); });
        settle();
    }
    void settle() {
        while (mainQueue.runReady() + workQueue.runReady() > 0) {}
    }
};
} // namespace

TEST(ActiveCountdownController, FormatsTheRemainingTime) {
    const std::pair<Duration, const char*> rows[] = {
        {seconds(3725), "1:02:05"}, {seconds(65), "1:05"},        {seconds(3600), "1:00:00"},
        {seconds(3599), "59:59"},   {microseconds(1), "0:01"},    {seconds(0), "0:00"},
        {seconds(-5), "0:00"},      {seconds(90061), "25:01:01"}, {seconds(3599) + microseconds(1), "1:00:00"}};
    for (const auto& [remaining, text] : rows)
        EXPECT_EQ(ActiveCountdownController::remainingText(remaining), text) << remaining.count();
}

TEST(ActiveCountdownController, FitsTheRemainingTimeIntoAnIcon) {
    const std::pair<Duration, const char*> rows[] = {
        {seconds(59), "59"},   {seconds(60), "1m"},       {seconds(61), "2m"}, {seconds(5940), "99m"},
        {seconds(5941), "2h"}, {minutes(100 * 60), "5d"}, {seconds(0), "0"}};
    for (const auto& [remaining, text] : rows)
        EXPECT_EQ(ActiveCountdownController::badgeText(remaining), text) << remaining.count();
}

TEST_F(ActiveCountdownControllerTest, CountsDownTheNextOneThenTheOneAfter) {
    ASSERT_TRUE(scheduler.scheduleTimer(seconds(65), "tea", "A"));
    start();
    ASSERT_TRUE(controller.current());
    EXPECT_EQ(controller.current()->description, "1:05 remaining");
    EXPECT_EQ(controller.current()->capture.title, "tea");
    ASSERT_TRUE(scheduler.scheduleTimer(seconds(3), std::nullopt, "B"));
    settle();
    for (int second = 0; second < 4; ++second) {
        mainQueue.advance(seconds(1));
        settle();
    }
    shown.erase(std::unique(shown.begin(), shown.end()), shown.end());
    EXPECT_EQ(shown, (std::vector<std::string>{"1:05", "0:03", "0:02", "0:01", "1:02", "1:01"}));
    mainQueue.advance(seconds(61));
    settle();
    EXPECT_EQ(shown.back(), "-");
    const std::size_t count = shown.size();
    mainQueue.advance(minutes(5));
    EXPECT_EQ(shown.size(), count) << "nothing ticks when nothing is pending";
}

TEST_F(ActiveCountdownControllerTest, FollowsCancellationClockStepsAndOneQuestionAtATime) {
    ASSERT_TRUE(scheduler.scheduleAlarm(SchedulingRig::start + minutes(60), "meds", "A"));
    start();
    EXPECT_EQ(shown.back(), "1:00:00");
    clock.stepWallClock(SchedulingRig::start + minutes(30));
    mainQueue.advance(seconds(1));
    EXPECT_EQ(shown.back(), "29:59");
    for (int i = 0; i < 20; ++i) notifications.post(scheduledCapturesChanged);
    mainQueue.runReady();
    EXPECT_EQ(workQueue.runReady(), 1);
    ASSERT_TRUE(scheduler.cancelPendingCapture("A"));
    settle();
    EXPECT_EQ(shown.back(), "-");
    EXPECT_FALSE(controller.current());
}

TEST_F(ActiveCountdownControllerTest, StoppingMidwayLeavesNothingBehind) {
    ASSERT_TRUE(scheduler.scheduleTimer(seconds(65), "tea", "A"));
    controller.start([this](const auto&) { shown.emplace_back("called"); });
    workQueue.runReady();
    controller.stop(); // The answer is on its way to the main queue.
    mainQueue.advance(minutes(2));
    EXPECT_TRUE(shown.empty());
}
} // namespace snipwren
