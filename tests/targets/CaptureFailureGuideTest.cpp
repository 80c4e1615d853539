#include "capture/CaptureFailureGuide.h"

#include <gtest/gtest.h>

#include "targets/TargetsRig.h"

namespace snipwren {
namespace {
TEST(CaptureFailureGuide, OffersTheStepThatHelps) {
    const TargetsRig rig;
    const CaptureFailureGuide notices{"Privacy & Permissions", "notifications", "Open Notification settings"};
    const CaptureFailureGuide recovery{"Error Logs", std::nullopt, "Show recovery log"};
    const struct {
        const char* command;
        const char* detail;
        CaptureFailureGuide want;
    } cases[] = {
        {"obsidian", "Access denied", {"Capture Targets", "obsidianVault", "Open Obsidian settings"}},
        {"logseq", "", {"Capture Targets", "logseqGraph", "Open Logseq settings"}},
        {"slack", "network", {"Capture Targets", "slack", "Open Slack settings"}},
        {"timer", "Notifications are NOT AUTHORIZED", notices},
        {"alarm", "permission", notices},
        {"timer", "The network is down", recovery},
        {"calendar", "DENIED", {"Privacy & Permissions", "calendar", "Open permissions"}},
        {"reminders", "no Access", {"Privacy & Permissions", "reminders", "Open permissions"}},
        {"reminders", "no such list", recovery},
        {"note", "permission denied", recovery},
        {"Slack", "exact letters only", recovery},
    };
    for (const auto& [command, detail, want] : cases)
        EXPECT_EQ(CaptureFailureGuide::resolve(rig.targets, command, detail), want) << command << ": " << detail;
}
} // namespace
} // namespace snipwren
