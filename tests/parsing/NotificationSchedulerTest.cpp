#include "parsing/scheduling/NotificationScheduler.h"

#include <gtest/gtest.h>

#include "support/FakeUserNotificationCenter.h"
#include "support/SchedulingRig.h"

namespace snipwren {
namespace {
using std::chrono::minutes;
using std::chrono::seconds;
using Case = NotificationSchedulerError::Case;
using Authorization = NotificationSettings::Authorization;

struct NotificationSchedulerTest : testing::Test, SchedulingRig {
    int changes = 0;
    NotificationCenter::Subscription subscription =
        notifications.observe(scheduledCapturesChanged, [this](const UserInfo&) { ++changes; });
};
} // namespace

TEST_F(NotificationSchedulerTest, RegistersATimerListsItAndRingsOnce) {
    delegate.attach();
    const auto done = scheduler.scheduleTimer(minutes(25), "tea", "A");
    ASSERT_TRUE(done);
    EXPECT_EQ(done->identifier, "A");
    EXPECT_EQ(done->fireDate, start + minutes(25));
    ASSERT_TRUE(scheduler.scheduleTimer(minutes(1), std::nullopt, "B"));
    ASSERT_TRUE(scheduler.scheduleAlarm(start + minutes(10), "take meds", "C"));
    EXPECT_EQ(log.lines().front(),
              "⏱️ NotificationScheduler: Timer registered — fires in 1500s at 2027-01-15T08:25:00Z");
    EXPECT_EQ(log.lines().back(), "⏰ NotificationScheduler: Alarm registered — fires at 2027-01-15T08:10:00Z");
    mainQueue.runReady();
    EXPECT_GE(changes, 3);

    const auto pending = *scheduler.listPendingCaptures();
    ASSERT_EQ(pending.size(), 3U);
    EXPECT_EQ(pending[0].id, "B");
    EXPECT_EQ(pending[0].title, "Timer finished");
    EXPECT_EQ(pending[1], (PendingScheduledCapture{"C", PendingScheduledCapture::Kind::alarm, "take meds", "",
                                                   start + minutes(10), start}));
    EXPECT_EQ(pending[2].id, "A");

    mainQueue.advance(minutes(30));
    ASSERT_EQ(center.history().size(), 3U);
    EXPECT_EQ(center.history()[2].request.body, "Your timer is done");
    // The system's delivery and our own panel together show each of the three once.
    ASSERT_EQ(panel.notices.size(), 3U);
    EXPECT_EQ(panel.notices[1].title, "take meds");
    EXPECT_EQ(panel.notices[2].body, "Your timer is done");
    EXPECT_TRUE(scheduler.listPendingCaptures()->empty());
}

TEST_F(NotificationSchedulerTest, AnAlarmKeepsItsCivilTimeAndZone) {
    const Calendar cairo = *Calendar::make("Africa/Cairo", "en_GB");
    NotificationScheduler inCairo({center, fallback, cairo, clock, random, log, notifications, {}});
    const TimePoint july = *cairo.resolve({2027, 7, 14, 7, 30, 0});
    ASSERT_TRUE(inCairo.scheduleAlarm(july, "", "A"));
    const auto pending = *center.pending();
    const auto trigger = std::get<CalendarTrigger>(pending.at(0).trigger);
    EXPECT_EQ(trigger.civil, (CivilTime{2027, 7, 14, 7, 30, 0}));
    EXPECT_EQ(trigger.zone, "Africa/Cairo");
    // Summer time is three hours ahead of UTC there; older zone data says two.
    EXPECT_EQ(isoUtc(trigger.moment), "2027-07-14T04:30:00Z");
    EXPECT_EQ(pending[0].title, "Alarm");
    EXPECT_EQ(pending[0].body, "");
}

TEST_F(NotificationSchedulerTest, RefusalsAddNothing) {
    struct Row {
        NotificationSettings settings;
        bool grants;
        std::optional<Case> error;
        int broughtToFront;
    };
    const Row rows[] = {
        {{Authorization::denied, true}, true, Case::permissionDenied, 0},
        {{Authorization::notDetermined, true}, false, Case::permissionDenied, 1},
        {{Authorization::notDetermined, false}, true, Case::alertsDisabled, 1},
        {{Authorization::authorized, false}, true, Case::alertsDisabled, 0},
        {{Authorization::notDetermined, true}, true, std::nullopt, 1},
    };
    for (const Row& row : rows) {
        SchedulingRig rig;
        rig.center.setSettings(row.settings, row.grants);
        const auto done = rig.scheduler.scheduleTimer(minutes(1), std::nullopt);
        EXPECT_EQ(rig.timesBroughtToFront, row.broughtToFront);
        if (row.error) {
            ASSERT_FALSE(done);
            EXPECT_EQ(done.error().kind, *row.error) << message(done.error());
        }
        rig.mainQueue.advance(minutes(2));
        EXPECT_EQ(rig.panel.notices.size(), row.error ? 0U : 1U);
    }
    EXPECT_EQ(message({Case::alertsDisabled, {}}),
              "Notifications are allowed but Banners/Alerts are turned off for Snipwren. Enable Alerts in System "
              "Settings → Notifications → Snipwren.");
}

TEST_F(NotificationSchedulerTest, WhatTheSystemDoesNotHoldIsAFailure) {
    center.setDropsSilently(true);
    const auto dropped = scheduler.scheduleTimer(minutes(1), "tea", "A");
    ASSERT_FALSE(dropped);
    EXPECT_EQ(message(dropped.error()),
              "Could not schedule the notification (macOS did not register the notification. Check Snipwren → "
              "Notifications in System Settings and enable Banners/Alerts.)");
    EXPECT_EQ(log.lines().back(), "❌ NotificationScheduler: add() succeeded but request A is not pending");

    FakeUserNotificationCenter broken;
    broken.addError = "the store is full";
    NotificationScheduler failing({broken, fallback, calendar, clock, random, log, notifications, {}});
    const auto refused = failing.scheduleAlarm(start + minutes(1), "x");
    ASSERT_FALSE(refused);
    EXPECT_EQ(message(refused.error()), "Could not schedule the notification (the store is full)");
    EXPECT_EQ(log.lines().back(), "❌ NotificationScheduler: Failed to add notification: the store is full");
    mainQueue.advance(minutes(2));
    EXPECT_TRUE(panel.notices.empty());
    EXPECT_EQ(changes, 0);
}

TEST_F(NotificationSchedulerTest, CancellingTakesTheRequestAndThePanelAway) {
    ASSERT_TRUE(scheduler.scheduleTimer(minutes(1), "tea", "A"));
    ASSERT_TRUE(scheduler.scheduleTimer(minutes(2), "eggs", "B"));
    ASSERT_TRUE(scheduler.cancelPendingCapture("A"));
    ASSERT_TRUE(scheduler.cancelPendingCapture("unknown"));
    mainQueue.advance(minutes(3));
    ASSERT_EQ(panel.notices.size(), 1U);
    EXPECT_EQ(panel.notices[0].title, "eggs");
    EXPECT_EQ(center.history().size(), 1U);
}

TEST_F(NotificationSchedulerTest, ReminderAlarmsRingButAreNoCaptures) {
    delegate.attach();
    ASSERT_TRUE(scheduler.scheduleReminderAlarm(start + minutes(1), "pick up"));
    EXPECT_TRUE(scheduler.listPendingCaptures()->empty());
    mainQueue.advance(minutes(2));
    EXPECT_EQ(panel.notices.size(), 1U);
}

TEST_F(NotificationSchedulerTest, ListsWhatOtherProgramsScheduledWithoutOurKeys) {
    NotificationRequest alarm;
    alarm.identifier = "foreign";
    alarm.categoryIdentifier = NotificationScheduler::alarmCategory;
    alarm.trigger = CalendarTrigger{{}, "UTC", start + minutes(5)};
    ASSERT_TRUE(center.add(alarm));
    NotificationRequest timer = alarm;
    timer.identifier = "unknown";
    timer.categoryIdentifier = NotificationScheduler::timerCategory;
    timer.trigger = IntervalTrigger{minutes(1)};
    ASSERT_TRUE(center.add(timer));
    alarm.identifier = "update";
    alarm.categoryIdentifier = "SNIPWRN_UPDATE";
    ASSERT_TRUE(center.add(alarm));
    const auto pending = *scheduler.listPendingCaptures();
    ASSERT_EQ(pending.size(), 2U);
    EXPECT_EQ(pending[0].fireDate, start + minutes(5));
    EXPECT_EQ(pending[1].fireDate, std::nullopt) << "without a fire date it comes last";
}

TEST(TimerCompletionFallback, ASecondOneReplacesTheFirst) {
    SchedulingRig rig;
    rig.fallback.schedule("A", rig.start + seconds(10), "first", "");
    rig.fallback.schedule("A", rig.start + seconds(20), "Alarm", "second");
    rig.fallback.schedule("B", rig.start - seconds(5), "past", "");
    rig.mainQueue.runReady();
    ASSERT_EQ(rig.panel.notices.size(), 1U);
    EXPECT_EQ(rig.panel.notices[0].title, "past");
    EXPECT_EQ(rig.panel.notices[0].symbol, "timer");
    rig.mainQueue.advance(seconds(60));
    ASSERT_EQ(rig.panel.notices.size(), 2U);
    EXPECT_EQ(rig.panel.notices[1].body, "second");
    EXPECT_EQ(rig.panel.notices[1].symbol, "alarm");
}

TEST(TimerCompletionFallback, OneReplacedOrCancelledAtItsMomentStaysSilent) {
    SchedulingRig rig;
    // Both are due and stand ready in the queue, where they can no longer be cancelled, when this task runs.
    rig.mainQueue.async([&] {
        rig.fallback.schedule("A", rig.start + seconds(10), "new", "");
        rig.fallback.cancel("B");
    });
    rig.fallback.schedule("A", rig.start, "old", "");
    rig.fallback.schedule("B", rig.start, "cancelled", "");
    rig.mainQueue.runReady();
    EXPECT_TRUE(rig.panel.notices.empty());
    rig.mainQueue.advance(seconds(11));
    ASSERT_EQ(rig.panel.notices.size(), 1U);
    EXPECT_EQ(rig.panel.notices[0].title, "new");
}

TEST(TimerCompletionFallback, ADeliveryAfterSleepShowsAtOnceAndOnlyOnce) {
    SchedulingRig rig;
    rig.fallback.schedule("A", rig.start + minutes(5), "tea", "done");
    // The machine slept: the wall clock went on, the queue's delay did not.
    rig.clock.stepWallClock(rig.start + minutes(6));
    rig.fallback.systemDelivered("A", "tea", "done");
    EXPECT_EQ(rig.panel.notices.size(), 1U);
    rig.fallback.systemDelivered("A", "tea", "done");
    rig.mainQueue.advance(minutes(10));
    EXPECT_EQ(rig.panel.notices.size(), 1U);
    // The same identifier set again is a new timer.
    rig.fallback.schedule("A", rig.clock.now() + minutes(1), "tea", "done");
    rig.mainQueue.advance(minutes(2));
    EXPECT_EQ(rig.panel.notices.size(), 2U);
}

TEST(TimerCompletionFallback, FollowsWhatOtherProgramsScheduleAndCancel) {
    SchedulingRig rig;
    using enum PendingScheduledCapture::Kind;
    rig.fallback.schedule("cancelled elsewhere", rig.start + seconds(30), "x", "");
    rig.fallback.schedule("moved", rig.start + seconds(30), "moved", "");
    rig.fallback.adopt({{"moved", alarm, "moved", "", rig.start + seconds(90), {}},
                        {"theirs", timer, "tea", "", rig.start + seconds(60), {}},
                        {"no date", timer, "y", "", {}, {}}});
    rig.mainQueue.advance(seconds(45));
    EXPECT_TRUE(rig.panel.notices.empty());
    rig.mainQueue.advance(seconds(60));
    ASSERT_EQ(rig.panel.notices.size(), 2U);
    EXPECT_EQ(rig.panel.notices[0].body, "Your timer is done");
    EXPECT_EQ(rig.panel.notices[1].title, "moved");
}

TEST(TimerCompletionFallback, WaitingTasksOutliveItHarmlessly) {
    SchedulingRig rig;
    auto fallback = std::make_unique<TimerCompletionFallback>(
        TimerCompletionFallback::Dependencies{rig.mainQueue, rig.clock, rig.panel, rig.notifications});
    fallback->schedule("A", rig.start, "x", "");
    // Dies within the queue's run, when its task stands ready and can no longer be cancelled.
    rig.mainQueue.async([&] { fallback.reset(); });
    rig.mainQueue.runReady();
    rig.mainQueue.advance(seconds(1));
    EXPECT_FALSE(fallback);
}

TEST(NotificationDelegate, ShowsEverythingInFrontAndHandsButtonsOn) {
    SchedulingRig rig;
    std::vector<std::string> pressed;
    {
        NotificationDelegate delegate({rig.center, rig.fallback, rig.notifications});
        delegate.onAction("SNIPWRN_UPDATE", "RESTART_TO_UPDATE",
                          [&](const NotificationResponse& response) { pressed.push_back(response.requestIdentifier); });
        delegate.attach();
        for (const char* identifier : {"one", "two", "three"}) {
            NotificationRequest request;
            request.identifier = identifier;
            request.categoryIdentifier = std::string(identifier) == "two" ? "OTHER" : "SNIPWRN_UPDATE";
            ASSERT_TRUE(rig.center.add(request));
        }
        rig.mainQueue.runReady();
        for (const char* identifier : {"one", "two", "unknown"}) rig.center.respond(identifier, "RESTART_TO_UPDATE");
        rig.center.respond("three", NotificationResponse::defaultAction);
        rig.mainQueue.runReady();
    }
    EXPECT_EQ(pressed, std::vector<std::string>{"one"});
    EXPECT_TRUE(rig.panel.notices.empty()) << "only timers and alarms have the panel";
    // The delegate is gone: nothing may call it.
    rig.center.respond("three", "RESTART_TO_UPDATE");
    rig.mainQueue.runReady();
}
} // namespace snipwren
