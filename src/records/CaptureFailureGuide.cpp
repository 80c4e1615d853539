#include "records/CaptureFailureGuide.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
namespace {
bool isPermissionProblem(std::string_view detail) {
    constexpr std::string_view signs[] = {"permission", "denied", "not authorized", "access"};
    const std::string lower = lowercased(detail);
    return std::ranges::any_of(signs, [&](std::string_view sign) { return lower.find(sign) != std::string::npos; });
}
} // namespace

const CaptureFailureGuide& CaptureFailureGuide::recovery() {
    static const CaptureFailureGuide guide{"Error Logs", std::nullopt, "Show recovery log"};
    return guide;
}

CaptureFailureGuide CaptureFailureGuide::resolve(std::string_view command, std::string_view detail) {
    if (command == "obsidian") return {"Capture Targets", "obsidianVault", "Open Obsidian settings"};
    if (command == "logseq") return {"Capture Targets", "logseqGraph", "Open Logseq settings"};
    if (command == "slack") return {"Capture Targets", "slack", "Open Slack settings"};
    const bool isNotice = command == "timer" || command == "alarm";
    const bool isCalendar = command == "calendar" || command == "reminders";
    if ((isNotice || isCalendar) && isPermissionProblem(detail)) {
        if (isNotice) return {"Privacy & Permissions", "notifications", "Open Notification settings"};
        return {"Privacy & Permissions", std::string(command), "Open permissions"};
    }
    return recovery();
}
} // namespace snipwren
