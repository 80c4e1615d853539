#include <sstream>

#include <gtest/gtest.h>

#include "cli/CommandLine.h"
#include "scheduler/SchedulerProtocol.h"
#include "support/FakeNotificationService.h"
#include "support/PrivateBus.h"

namespace snipwren {
namespace {
struct ScheduledCommand : testing::Test {
    TemporaryFolder folder;
    PrivateBus bus;
    FakeNotificationService service;
    Paths paths = Paths::under(folder.path());
    std::string out, err;

    ScheduledCommand() {
        // Where the program looks for the scheduler when it stands nowhere beside it.
        const char* path = std::getenv("PATH");
        ::setenv("PATH", (std::string(SCHEDULER_FOLDER) + ":" + (path ? path : "")).c_str(), 1);
    }
    ~ScheduledCommand() override {
        std::uint32_t process = 0;
        try {
            const auto connection = sdbus::createSessionBusConnection();
            sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
                ->callMethod("GetConnectionUnixProcessID")
                .onInterface("org.freedesktop.DBus")
                .withArguments(SchedulerProtocol::busName(paths))
                .storeResultsTo(process);
            ::kill(static_cast<pid_t>(process), SIGKILL);
        } catch (const sdbus::Error&) {
            // It was never started.
        }
    }
    /// Every command is a process of its own in life, so it gets an environment of its own here.
    int run(std::vector<const char*> words) {
        words.insert(words.begin(), "snipwren");
        Environment environment(paths);
        EXPECT_FALSE(environment.loadDefaults());
        std::istringstream in;
        std::ostringstream outStream, errStream;
        const int status =
            runCommandLine(static_cast<int>(words.size()), words.data(), in, outStream, errStream, environment);
        out = outStream.str();
        err = errStream.str();
        return status;
    }
};
} // namespace

TEST_F(ScheduledCommand, CapturesListsAndCancelsAcrossProcesses) {
    EXPECT_EQ(run({"scheduled"}), 0) << err;
    EXPECT_EQ(out, "No timers or alarms are pending.\n");
    EXPECT_EQ(run({"capture", "timer", "25m", "tea"}), 0) << err;
    EXPECT_EQ(out.find("Timer set — fires at "), 0U) << out;
    EXPECT_EQ(run({"capture", "alarm", "tomorrow 7:30am take meds"}), 0) << err;
    EXPECT_EQ(run({"scheduled", "list", "--json"}), 0) << err;
    const std::size_t tea = out.find("\"title\": \"tea\"");
    const std::size_t meds = out.find("\"title\": \"take meds\"");
    EXPECT_TRUE(tea != std::string::npos && meds != std::string::npos && tea < meds) << out;
    EXPECT_EQ(run({"scheduled"}), 0);
    const std::string id = out.substr(0, out.find(' '));
    EXPECT_NE(out.find("tea\n"), std::string::npos) << out;
    EXPECT_EQ(run({"scheduled", "cancel", "nonsense"}), 1);
    EXPECT_EQ(run({"scheduled", "cancel", id.substr(0, 8).c_str()}), 0) << err;
    EXPECT_EQ(out, "Cancelled timer \"tea\".\n");
    EXPECT_EQ(run({"scheduled"}), 0);
    EXPECT_EQ(out.find("tea"), std::string::npos) << out;
    EXPECT_NE(out.find("take meds"), std::string::npos) << out;
}

TEST_F(ScheduledCommand, ACaptureWithoutNotificationsFailsAndKeepsTheText) {
    ASSERT_EQ(run({"config", "set", "notificationAlertsEnabled", "false"}), 0);
    EXPECT_EQ(run({"capture", "timer", "25m", "tea"}), 1);
    EXPECT_NE(err.find("Notifications are allowed but Banners/Alerts are turned off for Snipwren."), std::string::npos)
        << err;
    EXPECT_EQ(run({"scheduled"}), 0);
    EXPECT_EQ(out, "No timers or alarms are pending.\n");
}

TEST_F(ScheduledCommand, TypedTriggersReachTheTargets) {
    const std::pair<const char*, const char*> rows[] = {
        {"//timer 25m tea\\n", "Timer set — fires at "},
        {"//alarm tomorrow 7:30am meds\\n", "Alarm set — "},
        {"//calc 15% of 847\\n", "= 127.05"},
        {"//reminders milk tomorrow 8am\\n", "Reminder set — "},
        {"//calendar standup tomorrow 2pm\\n", "Event added — "},
    };
    for (const auto& [keys, receipt] : rows) {
        EXPECT_EQ(run({"type", keys}), 0) << keys << err;
        EXPECT_NE(out.find(receipt), std::string::npos) << keys << "\n" << out << err;
        EXPECT_NE(out.find("field:     \"\""), std::string::npos) << "the trigger is gone from the field\n" << out;
    }
    EXPECT_EQ(run({"type", "//timer 30s\\n"}), 1);
    EXPECT_NE(err.find("Timer must be at least 1 minute"), std::string::npos) << out << err;
    EXPECT_EQ(run({"scheduled"}), 0);
    EXPECT_EQ(out, "No timers or alarms are pending.\n") << "a virtual desktop sets no real timer";
}
} // namespace snipwren
