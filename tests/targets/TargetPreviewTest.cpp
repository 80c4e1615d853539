#include <gtest/gtest.h>

#include "targets/TargetsRig.h"

namespace snipwren {
namespace {
TEST(TargetPreview, SaysWhatReturnWouldDo) {
    TargetsRig rig;
    rig.clock.stepWallClock(*rig.calendar.resolve({2026, 11, 20, 16, 45, 0})); // A Friday.
    const std::string timerHint = " — Read as a clock time. For a countdown use //timer";
    struct Case {
        const char* command;
        const char* text;
        std::string shown; // Empty for no preview.
    };
    const Case cases[] = {
        {"calendar", "standup next friday 2pm", "Fri 27 Nov, 14:00 · standup"},
        {"calendar", "standup friday", "Fri 27 Nov, 09:00 · standup"},
        {"calendar", "standup in 2 hours",
         "Fri 20 Nov, 09:00 · standup — Only the day is read. Name a clock time, such as at 3pm"},
        {"calendar", "standup", "no date"},
        {"reminders", "pay rent on the 1st", "Tue 1 Dec · pay rent"},
        {"reminders", "pay rent jan 5th", "Tue 5 Jan 2027 · pay rent"},
        {"reminders", "tea in 20 minutes", "Fri 20 Nov, 17:05 · tea"},
        {"reminders", "buy milk", "no date"},
        {"alarm", "7:30am take meds", "Sat 21 Nov, 07:30 · take meds"},
        {"alarm", "buy 2 tickets", "Sat 21 Nov, 02:00 · buy tickets"},
        {"alarm", "in 20 minutes", "Fri 20 Nov, 20:00 · in minutes" + timerHint},
        {"alarm", "in half an hour", "no time" + timerHint},
        {"alarm", "friday take meds", "no time"},
        {"alarm", "take meds", "no date"},
        {"timer", "25m tea", "25m · tea"},
        {"timer", "90s", "1m 30s"},
        {"timer", "tea", "no duration"},
        {"timer", "25h", "Timer duration cannot exceed 24 hours."},
        {"calc", "15% of 847", "127.05"},
        {"calc", "2+", ""},
        {"note", "friday 2pm", ""},
        {"alarm", "  ", ""},
    };
    for (const Case& c : cases) {
        const CaptureTarget& target = *rig.targets.find(c.command);
        EXPECT_EQ(target.preview(c.text).value_or(""), c.shown) << c.command << " " << c.text;
        EXPECT_EQ(target.previewIsResult(), target.commandName() == "calc");
    }
}
} // namespace
} // namespace snipwren
