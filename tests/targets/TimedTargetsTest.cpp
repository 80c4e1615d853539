#include <gtest/gtest.h>

#include "parsing/DurationParser.h"
#include "targets/TargetsRig.h"

namespace snipwren {
namespace {
struct TimedTargets : testing::Test, TargetsRig {
    CaptureTarget& timer = *targets.find("timer");
    CaptureTarget& alarm = *targets.find("alarm");
    CaptureTarget& reminders = *targets.find("reminders");
    CaptureTarget& events = *targets.find("calendar");

    /// The failure's description; empty on success.
    std::string problem(CaptureTarget& target, const std::string& text) {
        const auto sent = send(target, text);
        return sent ? "" : sent.error().description;
    }
    TimePoint at(int day, int hour, int minute = 0) const { return *calendar.resolve({2027, 1, day, hour, minute, 0}); }
};
} // namespace

TEST_F(TimedTargets, ATimerIsPendingUnderItsLabel) {
    FakeAttempt attempt(clock.now());
    EXPECT_EQ(*send(timer, " 25m tea\n", attempt),
              (CaptureReceipt{"Timer set — fires at 08:25", std::nullopt, "timer", false, attempt.captureId()}));
    EXPECT_EQ(log.lines().back(),
              "⏱️ TimerTarget: Scheduled timer for 25m (3 characters), fireDate=2027-01-15T08:25:00Z");
    EXPECT_EQ(problem(timer, "1.5m"), "");
    EXPECT_EQ(log.lines().back(),
              "⏱️ TimerTarget: Scheduled timer for 1m 30s (no label), fireDate=2027-01-15T08:01:30Z");
    const auto pending = *scheduler.listPendingCaptures();
    ASSERT_EQ(pending.size(), 2U);
    EXPECT_EQ(pending[1].title, "tea");
    EXPECT_NE(pending[0].id, pending[1].id);
}

TEST_F(TimedTargets, AnAlarmNeedsAClockTime) {
    FakeAttempt attempt(clock.now());
    EXPECT_EQ(*send(alarm, "7:30am take meds", attempt),
              (CaptureReceipt{"Alarm set — 16 Jan 2027, 07:30", std::nullopt, "alarm", false, attempt.captureId()}));
    EXPECT_EQ(log.lines().back(), "⏰ AlarmTarget: Scheduled alarm for 16 Jan 2027, 07:30 — '(9 characters)'");
    EXPECT_EQ(scheduler.listPendingCaptures()->at(0).fireDate, at(16, 7, 30));
    EXPECT_EQ(problem(alarm, " \n"), "Alarm text is empty. Try: 7:30am take meds");
    EXPECT_EQ(problem(alarm, "take meds"),
              "Could not find a date or time. Try: 7:30am take meds or tomorrow 9am standup");
    EXPECT_EQ(problem(alarm, "friday take meds"), "Alarm needs a specific time. Try: tomorrow 9am take meds");
    EXPECT_EQ(scheduler.listPendingCaptures()->size(), 1U);
}

TEST_F(TimedTargets, ARefusedNotificationReachesTheUserUnchanged) {
    center.setSettings({NotificationSettings::Authorization::authorized, false});
    const auto sent = send(timer, "25m tea");
    ASSERT_FALSE(sent);
    EXPECT_EQ(sent.error().domain, "NotificationSchedulerError");
    EXPECT_EQ(sent.error().description,
              message(NotificationSchedulerError{NotificationSchedulerError::Case::alertsDisabled, {}}));
    EXPECT_EQ(problem(timer, "30s"), std::string(message(DurationParserError::belowMinimum)));
    EXPECT_TRUE(center.pending()->empty());
}

TEST_F(TimedTargets, AnEventTakesOneHourAndBeginsAtNineWithoutATime) {
    const auto sent = send(events, "standup tomorrow 2pm");
    ASSERT_TRUE(sent);
    EXPECT_EQ(log.lines().back(), "📅 CalendarTarget: Created event '(7 characters)' at 16 Jan 2027, 14:00");
    EXPECT_EQ(problem(events, "standup friday"), "");
    const auto saved = store.events();
    ASSERT_EQ(saved.size(), 2U);
    EXPECT_EQ(saved[0], (CalendarEvent{"standup", at(16, 14), at(16, 15)}));
    EXPECT_EQ(calendar.weekday(saved[1].start), 5);
    EXPECT_EQ(calendar.civil(saved[1].start).hour, 9);
    EXPECT_EQ(saved[1].end - saved[1].start, std::chrono::hours(1));
    EXPECT_EQ(sent->sentence, "Event added — 16 Jan 2027, 14:00");
    EXPECT_EQ(sent->revealPath, "/System/Applications/Calendar.app");
}

TEST_F(TimedTargets, ARemindersDateDecidesWhatIsSet) {
    EXPECT_EQ(problem(reminders, "milk"), "");
    EXPECT_EQ(problem(reminders, "milk tomorrow"), "");
    const auto sent = send(reminders, "pick up dry cleaning tomorrow 8am");
    ASSERT_TRUE(sent);
    const auto saved = store.reminders();
    ASSERT_EQ(saved.size(), 3U);
    EXPECT_EQ(saved[0], (Reminder{"milk", std::nullopt, std::nullopt}));
    ASSERT_TRUE(saved[1].due);
    EXPECT_EQ(calendar.civil(*saved[1].due).day, 16);
    EXPECT_FALSE(saved[1].alarm);
    EXPECT_EQ(saved[2], (Reminder{"pick up dry cleaning", at(16, 8), at(16, 8)}));
    EXPECT_EQ(sent->sentence, "Reminder set — 16 Jan 2027, 08:00");
    EXPECT_EQ(sent->revealPath, "/System/Applications/Reminders.app");
    EXPECT_EQ(log.lines().back(), "📝 RemindersTarget: Successfully scheduled native macOS Reminder: '(20 characters)' "
                                  "with due date: 16 Jan 2027, 08:00");
    EXPECT_TRUE(center.pending()->empty()) << "this store rings by itself";
}

TEST_F(TimedTargets, WhereTheStoreRingsNothingTheSchedulerDoes) {
    store.setUp({.ringsAlarms = false, .saveError = {}});
    delegate.attach();
    EXPECT_EQ(problem(reminders, "milk tomorrow"), "");
    EXPECT_TRUE(center.pending()->empty());
    EXPECT_EQ(problem(reminders, "milk tomorrow 8am"), "");
    EXPECT_EQ(center.pending()->size(), 1U);
    EXPECT_TRUE(scheduler.listPendingCaptures()->empty());
    mainQueue.advance(std::chrono::hours(25));
    ASSERT_EQ(panel.notices.size(), 1U);
    EXPECT_EQ(panel.notices[0].title, "milk");
    // Saved but silent is no failure, which would make the user save it again; it is said.
    center.setSettings({NotificationSettings::Authorization::denied, true});
    EXPECT_EQ(send(reminders, "eggs tomorrow 8am")->sentence,
              "Reminder set — 17 Jan 2027, 08:00 (no alert: notifications are off)");
    EXPECT_EQ(store.reminders().size(), 3U);
}

TEST_F(TimedTargets, StoresThatRefuseSaveNothing) {
    struct Row {
        VirtualEventStore::Setup setup;
        std::string reminder, event;
    };
    const Row rows[] = {
        {{.grantsAccess = false, .saveError = {}},
         "Access to macOS Reminders was denied. Please grant access in System Settings -> Privacy & Security -> "
         "Reminders.",
         "Calendar access was denied. Grant access in System Settings → Privacy & Security → Calendars."},
        {{.hasReminderList = false, .hasWritableCalendar = false, .saveError = {}},
         "No default calendar found for Reminders. Please open the Reminders app and configure at least one list.",
         "No writable calendar found. Open the Calendar app and configure at least one calendar."},
        {{.saveError = "The disk is full."}, "The disk is full.", "The disk is full."},
    };
    for (const Row& row : rows) {
        store.setUp(row.setup);
        EXPECT_EQ(problem(reminders, "milk tomorrow 8am"), row.reminder);
        EXPECT_EQ(problem(events, "standup tomorrow 2pm"), row.event);
    }
    store.setUp({.saveError = {}});
    EXPECT_EQ(problem(events, "\t"), "Calendar text is empty. Try: standup tomorrow 2pm");
    EXPECT_EQ(problem(events, "standup"), "Could not find a date or time. Try: standup tomorrow 2pm");
    EXPECT_EQ(problem(reminders, "  "), "");
    EXPECT_TRUE(store.reminders().empty() && store.events().empty());
}

TEST_F(TimedTargets, ARepeatedAttemptMakesNothingTwice) {
    store.setUp({.ringsAlarms = false, .saveError = {}});
    const std::pair<CaptureTarget*, const char*> captures[] = {{&timer, "25m tea"},
                                                               {&alarm, "7:30am x"},
                                                               {&reminders, "milk tomorrow 8am"},
                                                               {&events, "standup tomorrow 2pm"}};
    for (const auto& [target, text] : captures) {
        FakeAttempt first(clock.now(), "id of " + target->commandName());
        const auto sent = send(*target, text, first);
        ASSERT_TRUE(sent);
        clock.advance(std::chrono::minutes(5));
        FakeAttempt next = first.next();
        const auto again = send(*target, text, next);
        ASSERT_TRUE(again);
        EXPECT_EQ(*again, *sent) << target->commandName();
    }
    EXPECT_EQ(store.reminders().size(), 1U);
    EXPECT_EQ(store.events().size(), 1U);
    const auto pending = *scheduler.listPendingCaptures();
    ASSERT_EQ(pending.size(), 2U);
    EXPECT_EQ(pending[0].id, "id of timer");
    EXPECT_EQ(pending[0].fireDate, start + std::chrono::minutes(25)) << "counted from Return";
    EXPECT_EQ(center.pending()->size(), 3U) << "and the reminder's alarm, once";
    mainQueue.advance(std::chrono::hours(30));
    EXPECT_EQ(panel.notices.size(), 2U) << "the two; the reminder's shows on delivery";
}

TEST_F(TimedTargets, ALateCaptureIsReadAsOfItsReturn) {
    FakeAttempt attempt(start, "late");
    clock.advance(std::chrono::hours(72));
    ASSERT_TRUE(send(timer, "25m tea", attempt));
    EXPECT_EQ(scheduler.listPendingCaptures()->at(0).fireDate, clock.now() + NotificationScheduler::shortestWait);
    mainQueue.advance(std::chrono::seconds(2));
    ASSERT_EQ(panel.notices.size(), 1U) << "its time is over: it rings at once";
    EXPECT_EQ(send(alarm, "tomorrow 7:30am take meds", attempt)->sentence, "Alarm set — 16 Jan 2027, 07:30");
    EXPECT_EQ(scheduler.listPendingCaptures()->at(0).fireDate, clock.now() + NotificationScheduler::shortestWait);
    mainQueue.advance(std::chrono::seconds(2));
    EXPECT_EQ(panel.notices.size(), 2U);
    EXPECT_TRUE(send(reminders, "milk tomorrow 8am", attempt));
    EXPECT_EQ(store.reminders().at(0).due, at(16, 8));
    EXPECT_TRUE(send(events, "standup tomorrow 2pm", attempt));
    EXPECT_EQ(store.events().at(0).start, at(16, 14));
    // A clock that was set back makes no countdown longer.
    clock.stepWallClock(start - std::chrono::hours(5));
    ASSERT_TRUE(send(timer, "25m tea", attempt));
    EXPECT_EQ(scheduler.listPendingCaptures()->at(0).fireDate, clock.now() + std::chrono::minutes(25));
}

TEST_F(TimedTargets, UndoTakesBackWhatIsStillThere) {
    store.setUp({.ringsAlarms = false, .saveError = {}});
    const struct {
        CaptureTarget& target;
        const char* text;
        const char* done;
        const char* gone;
    } rows[] = {
        {timer, "25m tea", "The timer was cancelled.",
         "The timer is not pending any more, so nothing was cancelled. Try: snipwren scheduled"},
        {alarm, "7:30am take meds", "The alarm was cancelled.",
         "The alarm is not pending any more, so nothing was cancelled. Try: snipwren scheduled"},
        {reminders, "milk tomorrow 8am", "The reminder was removed.",
         "The reminder is not there any more. Nothing was removed; look for it in your calendar program."},
        {events, "standup tomorrow 2pm", "The event was removed from the calendar.",
         "The event is not there any more. Nothing was removed; look for it in your calendar program."},
    };
    for (const auto& row : rows) {
        const auto kept = send(row.target, row.text), sent = send(row.target, row.text);
        ASSERT_TRUE(kept && sent) << row.text;
        EXPECT_EQ(undo(row.target, row.text, sent->undo), row.done);
        EXPECT_EQ(undo(row.target, row.text, sent->undo), row.gone) << "twice";
    }
    // The other of each pair stays, with its alarm.
    EXPECT_EQ(scheduler.listPendingCaptures()->size(), 2U);
    EXPECT_EQ(center.pending()->size(), 3U);
    EXPECT_EQ(store.reminders().size(), 1U);
    EXPECT_EQ(store.events().size(), 1U);
}
} // namespace snipwren
