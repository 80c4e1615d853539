#include "targets/RemindersTarget.h"

#include "base/Text.h"
#include "parsing/CaptureDateParser.h"
#include "targets/TargetErrors.h"

namespace snipwren {
namespace {
constexpr const char* domain = "RemindersTarget";
constexpr const char* systemProgram = "/System/Applications/Reminders.app";

std::optional<std::string> revealPath(const EventStore& store) {
    auto path = store.revealPath(EventEntity::reminder);
    if (!path) return systemProgram;
    if (path->empty()) return std::nullopt;
    return path;
}
} // namespace

std::string_view message(RemindersTargetError error) {
    switch (error) {
    case RemindersTargetError::accessDenied:
        return "Access to macOS Reminders was denied. Please grant access in System Settings -> Privacy & Security -> "
               "Reminders.";
    case RemindersTargetError::noDefaultList:
        return "No default calendar found for Reminders. Please open the Reminders app and configure at least one "
               "list.";
    }
    return {};
}

Result<void, CaptureError> RemindersTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                 std::stop_token stop) {
    const auto storeFailed = [](const EventStoreError& error) {
        return unexpected(CaptureError{"EventStore", 1, error.description});
    };
    const std::string capture(trimmed(text));
    if (capture.empty()) return {}; // As for a note: nothing to keep is no failure.
    EventStore& store = dependencies_.store;
    if (!store.requestAccess(EventEntity::reminder, stop)) {
        if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
        return unexpected(captureError(domain, RemindersTargetError::accessDenied));
    }
    const auto parsed =
        CaptureDateParser::parseTitleAndDate(capture, dependencies_.clock.now(), dependencies_.calendar);
    const auto list = store.defaultList(EventEntity::reminder, stop);
    if (!list) return storeFailed(list.error());
    if (!*list) return unexpected(captureError(domain, RemindersTargetError::noDefaultList));
    Reminder reminder{parsed.title, std::nullopt, std::nullopt};
    if (parsed.date) reminder.due = std::chrono::floor<std::chrono::minutes>(*parsed.date);
    if (parsed.hasTime) reminder.alarm = parsed.date;
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    if (const auto saved = store.save(reminder, **list, stop); !saved) return storeFailed(saved.error());

    std::string receipt = "Reminder saved";
    const std::string due = parsed.date ? CaptureDateParser::formatDateTime(*parsed.date, dependencies_.calendar) : "";
    if (parsed.date) receipt = "Reminder set — " + due;
    if (reminder.alarm && !store.ringsAlarms()) {
        const auto rings = dependencies_.scheduler.scheduleReminderAlarm(*reminder.alarm, parsed.title);
        if (!rings) {
            // It is saved: a failure would make the user save it twice. The receipt says what is missing.
            receipt += " (no alert: notifications are off)";
            dependencies_.log.line("❌ RemindersTarget: The reminder's alarm could not be set: "
                                   + message(rings.error()));
        }
    }
    dependencies_.landing.announce({commandName_, capture, receipt, revealPath(store), std::nullopt, false});
    dependencies_.log.line("📝 RemindersTarget: Successfully scheduled native macOS Reminder: '" + parsed.title
                           + "' with due date: " + (parsed.date ? due : "none"));
    return {};
}
} // namespace snipwren
