#include <gtest/gtest.h>

#include "parsing/CalcExpressionEvaluator.h"
#include "parsing/DurationParser.h"
#include "platform/virtual/VirtualEventStore.h"
#include "support/RecordingLanding.h"
#include "support/SchedulingRig.h"
#include "targets/AlarmTarget.h"
#include "targets/CalcTarget.h"
#include "targets/CalendarTarget.h"
#include "targets/RemindersTarget.h"
#include "targets/TimerTarget.h"

namespace snipwren {
namespace {
struct MemoryPasteboard final : Pasteboard {
    bool works = true;
    std::optional<std::string> held;
    void clear() override { held.reset(); }
    bool setString(const std::string& text) override {
        if (works) held = text;
        return works;
    }
    std::optional<std::string> string() const override { return held; }
};

/// Friday, 15 January 2027, 08:00 UTC.
struct TimedTargets : testing::Test, SchedulingRig {
    RecordingLanding landing;
    VirtualEventStore store;
    MemoryPasteboard pasteboard;
    TimerTarget timer{{scheduler, calendar, landing, log}};
    AlarmTarget alarm{{scheduler, calendar, clock, landing, log}};
    CalcTarget calc{{pasteboard, mainQueue, landing, log}};
    RemindersTarget reminders{{store, scheduler, calendar, clock, landing, log}};
    CalendarTarget events{{store, calendar, clock, landing, log}};

    /// The failure's description; empty on success.
    static std::string send(CaptureTarget& target, const std::string& text, std::stop_token stop = {}) {
        const auto sent = target.send(text, std::nullopt, stop);
        return sent ? "" : sent.error().description;
    }
    TimePoint at(int day, int hour, int minute = 0) const { return *calendar.resolve({2027, 1, day, hour, minute, 0}); }
};
} // namespace

TEST_F(TimedTargets, ATimerIsPendingUnderItsLabel) {
    EXPECT_EQ(send(timer, " 25m tea\n"), "");
    EXPECT_EQ(landing.landings().back(),
              (Landing{"timer", "25m tea", "Timer set — fires at 08:25", std::nullopt, "timer", false}));
    EXPECT_EQ(log.lines().back(), "⏱️ TimerTarget: Scheduled timer for 25m (tea), fireDate=2027-01-15T08:25:00Z");
    EXPECT_EQ(send(timer, "1.5m"), "");
    EXPECT_EQ(log.lines().back(),
              "⏱️ TimerTarget: Scheduled timer for 1m 30s (no label), fireDate=2027-01-15T08:01:30Z");
    const auto pending = *scheduler.listPendingCaptures();
    ASSERT_EQ(pending.size(), 2U);
    EXPECT_EQ(pending[1].title, "tea");
    EXPECT_NE(pending[0].id, pending[1].id);
}

TEST_F(TimedTargets, AnAlarmNeedsAClockTime) {
    EXPECT_EQ(send(alarm, "7:30am take meds"), "");
    EXPECT_EQ(landing.landings().back(),
              (Landing{"alarm", "7:30am take meds", "Alarm set — 16 Jan 2027, 07:30", std::nullopt, "alarm", false}));
    EXPECT_EQ(log.lines().back(), "⏰ AlarmTarget: Scheduled alarm for 16 Jan 2027, 07:30 — 'take meds'");
    EXPECT_EQ(scheduler.listPendingCaptures()->at(0).fireDate, at(16, 7, 30));
    EXPECT_EQ(send(alarm, " \n"), "Alarm text is empty. Try: 7:30am take meds");
    EXPECT_EQ(send(alarm, "take meds"), "Could not find a date or time. Try: 7:30am take meds or tomorrow 9am standup");
    EXPECT_EQ(send(alarm, "friday take meds"), "Alarm needs a specific time. Try: tomorrow 9am take meds");
    EXPECT_EQ(scheduler.listPendingCaptures()->size(), 1U);
}

TEST_F(TimedTargets, ACalculationIsCopied) {
    pasteboard.held = "before";
    EXPECT_EQ(send(calc, "2x3"), std::string(message(CalcExpressionError::invalidExpression)));
    EXPECT_EQ(pasteboard.held, "before") << "nothing is copied when the evaluation fails";
    EXPECT_EQ(send(calc, " 15% of 847 "), "");
    EXPECT_EQ(pasteboard.held, "127.05");
    EXPECT_EQ(landing.landings().back(), (Landing{"calc", "15% of 847", "= 127.05", std::nullopt, "function", false}));
    EXPECT_EQ(log.lines().back(), "🧮 CalcTarget: Evaluated '15% of 847' -> 127.05");
    pasteboard.works = false;
    EXPECT_EQ(send(calc, "1+1"), "Failed to write to the clipboard.");
    EXPECT_EQ(landing.landings().size(), 1U);
}

TEST_F(TimedTargets, ARefusedNotificationReachesTheUserUnchanged) {
    center.setSettings({NotificationSettings::Authorization::authorized, false});
    const auto sent = timer.send("25m tea", std::nullopt, {});
    ASSERT_FALSE(sent);
    EXPECT_EQ(sent.error().domain, "NotificationSchedulerError");
    EXPECT_EQ(sent.error().description,
              message(NotificationSchedulerError{NotificationSchedulerError::Case::alertsDisabled, {}}));
    EXPECT_EQ(send(timer, "30s"), std::string(message(DurationParserError::belowMinimum)));
    EXPECT_TRUE(landing.landings().empty());
}

TEST_F(TimedTargets, AnEventTakesOneHourAndBeginsAtNineWithoutATime) {
    EXPECT_EQ(send(events, "standup tomorrow 2pm"), "");
    EXPECT_EQ(send(events, "standup friday"), "");
    const auto saved = store.events();
    ASSERT_EQ(saved.size(), 2U);
    EXPECT_EQ(saved[0], (CalendarEvent{"standup", at(16, 14), at(16, 15)}));
    EXPECT_EQ(calendar.weekday(saved[1].start), 5);
    EXPECT_EQ(calendar.civil(saved[1].start).hour, 9);
    EXPECT_EQ(saved[1].end - saved[1].start, std::chrono::hours(1));
    EXPECT_EQ(landing.landings()[0].receipt, "Event added — 16 Jan 2027, 14:00");
    EXPECT_EQ(landing.landings()[0].revealPath, "/System/Applications/Calendar.app");
    EXPECT_EQ(log.lines()[0], "📅 CalendarTarget: Created event 'standup' at 16 Jan 2027, 14:00");
}

TEST_F(TimedTargets, ARemindersDateDecidesWhatIsSet) {
    EXPECT_EQ(send(reminders, "milk"), "");
    EXPECT_EQ(send(reminders, "milk tomorrow"), "");
    EXPECT_EQ(send(reminders, "pick up dry cleaning tomorrow 8am"), "");
    const auto saved = store.reminders();
    ASSERT_EQ(saved.size(), 3U);
    EXPECT_EQ(saved[0], (Reminder{"milk", std::nullopt, std::nullopt}));
    ASSERT_TRUE(saved[1].due);
    EXPECT_EQ(calendar.civil(*saved[1].due).day, 16);
    EXPECT_FALSE(saved[1].alarm);
    EXPECT_EQ(saved[2], (Reminder{"pick up dry cleaning", at(16, 8), at(16, 8)}));
    EXPECT_EQ(landing.landings()[2].revealPath, "/System/Applications/Reminders.app");
    EXPECT_EQ(log.lines().back(), "📝 RemindersTarget: Successfully scheduled native macOS Reminder: 'pick up dry "
                                  "cleaning' with due date: 16 Jan 2027, 08:00");
    EXPECT_TRUE(center.pending()->empty()) << "this store rings by itself";
}

TEST_F(TimedTargets, WhereTheStoreRingsNothingTheSchedulerDoes) {
    store.setUp({.ringsAlarms = false, .saveError = {}});
    delegate.attach();
    EXPECT_EQ(send(reminders, "milk tomorrow"), "");
    EXPECT_TRUE(center.pending()->empty());
    EXPECT_EQ(send(reminders, "milk tomorrow 8am"), "");
    EXPECT_EQ(center.pending()->size(), 1U);
    EXPECT_TRUE(scheduler.listPendingCaptures()->empty());
    mainQueue.advance(std::chrono::hours(25));
    ASSERT_EQ(panel.notices.size(), 1U);
    EXPECT_EQ(panel.notices[0].title, "milk");
    // Saved but silent is no failure, which would make the user save it again; it is said.
    center.setSettings({NotificationSettings::Authorization::denied, true});
    EXPECT_EQ(send(reminders, "eggs tomorrow 8am"), "");
    EXPECT_EQ(store.reminders().size(), 3U);
    EXPECT_NE(landing.landings().back().receipt.find("(no alert: notifications are off)"), std::string::npos);
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
        EXPECT_EQ(send(reminders, "milk tomorrow 8am"), row.reminder);
        EXPECT_EQ(send(events, "standup tomorrow 2pm"), row.event);
    }
    store.setUp({.saveError = {}});
    EXPECT_EQ(send(events, "\t"), "Calendar text is empty. Try: standup tomorrow 2pm");
    EXPECT_EQ(send(events, "standup"), "Could not find a date or time. Try: standup tomorrow 2pm");
    EXPECT_EQ(send(reminders, "  "), "");
    EXPECT_TRUE(store.reminders().empty() && store.events().empty() && landing.landings().empty());
}

TEST_F(TimedTargets, AStoppedSendDoesNothing) {
    std::stop_source source;
    source.request_stop();
    for (CaptureTarget* target : std::initializer_list<CaptureTarget*>{&timer, &alarm, &calc, &reminders, &events})
        EXPECT_NE(send(*target, target == &calc ? "1+1" : "25m tomorrow 8am", source.get_token()), "")
            << target->commandName();
    EXPECT_TRUE(store.reminders().empty() && store.events().empty() && center.pending()->empty());
    EXPECT_FALSE(pasteboard.held);
}
} // namespace snipwren
