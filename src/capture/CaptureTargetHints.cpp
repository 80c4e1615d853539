#include "capture/CaptureTargetHints.h"

namespace snipwren {
namespace {
struct Hint {
    std::string_view commandName;
    CaptureTargetHints::Banner banner;
    std::string_view placeholder;
};

constexpr Hint hints[] = {
    {"timer", {"COUNTDOWN TIMER", "Notifies when done · view pending in Settings → Scheduled"}, "25m focus"},
    {"calc", {"QUICK CALCULATOR", "Live result while typing · Enter copies answer"}, "15% of 847"},
    {"alarm", {"ONE-SHOT ALARM", "macOS notification at set time · not Clock app"}, "7:30am take meds"},
    {"calendar", {"CALENDAR EVENT", "Natural language date/time · 1-hour block"}, "standup tomorrow 2pm"},
    {"slack", {"SLACK TARGET SELECTION", "#channels or @contacts"}, "deployment is live!"},
    {"reminders", {"REMINDERS", "Optional due date — tomorrow 5pm works"}, "pick up dry cleaning tomorrow 8am"},
    {"note", {"QUICK CAPTURE", "Appends to ~/Documents/Snipwren/Quick Capture.md"}, "buy milk on the way home"},
    {"copy", {"CLIPBOARD", "Stages text on the system pasteboard"}, "ssh -i key.pem ubuntu@api"},
    {"obsidian", {"OBSIDIAN", "Appends to today's daily note"}, "refactor this into a class"},
    {"logseq", {"LOGSEQ", "Prefix TODO for task bullets"}, "TODO review competitor pricing"},
};

const Hint* find(std::string_view commandName) {
    for (const Hint& hint : hints)
        if (hint.commandName == commandName) return &hint;
    return nullptr;
}
} // namespace

std::optional<CaptureTargetHints::Banner> CaptureTargetHints::banner(std::string_view commandName) {
    const Hint* hint = find(commandName);
    if (!hint) return std::nullopt;
    return hint->banner;
}

std::string_view CaptureTargetHints::placeholder(std::string_view commandName, bool isSlackFiltering) {
    if (isSlackFiltering && commandName == "slack") return "Filter target by typing (#channel or @user)...";
    const Hint* hint = find(commandName);
    return hint ? hint->placeholder : "Type message to capture...";
}
} // namespace snipwren
