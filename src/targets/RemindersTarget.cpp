#include "targets/RemindersTarget.h"

#include "base/Text.h"
#include "parsing/dates/CaptureDateParser.h"
#include "targets/PreviewText.h"
#include "targets/SavedItem.h"
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

std::optional<std::string> RemindersTarget::preview(const std::string& text) const {
    const std::string_view body = trimmed(text);
    if (body.empty()) return std::nullopt;
    const TimePoint now = dependencies_.clock.now();
    const Calendar& calendar = dependencies_.calendar;
    const auto parsed = CaptureDateParser::parseTitleAndDate(body, now, calendar);
    if (!parsed.date) return std::string(PreviewText::noDate);
    const CivilTime civil = calendar.civil(*parsed.date);
    const bool isNoon = civil.hour == 12 && civil.minute == 0; // Where a bare day stands.
    return PreviewText::joined(PreviewText::day(*parsed.date, parsed.hasTime || !isNoon, now, calendar), parsed.title);
}

CaptureFailureGuide RemindersTarget::failureGuide(std::string_view detail) const {
    if (!CaptureFailureGuide::isPermissionProblem(detail)) return CaptureFailureGuide::recovery();
    return {"Privacy & Permissions", word, "Open permissions"};
}

Result<CaptureReceipt, CaptureError> RemindersTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                           CaptureAttempt& attempt) {
    const auto storeFailed = [](const EventStoreError& error) { return unexpected(SavedItem::failure(error)); };
    const std::string capture(trimmed(text));
    if (capture.empty()) return CaptureReceipt(); // As for a note: nothing to keep is no failure.
    const std::stop_token& stop = attempt.stop();
    EventStore& store = dependencies_.store;
    if (!store.requestAccess(EventEntity::reminder, stop)) {
        if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
        return unexpected(captureError(domain, RemindersTargetError::accessDenied));
    }
    const auto parsed = CaptureDateParser::parseTitleAndDate(capture, attempt.confirmedAt(), dependencies_.calendar);
    const auto list = store.defaultList(EventEntity::reminder, stop);
    if (!list) return storeFailed(list.error());
    if (!*list) return unexpected(captureError(domain, RemindersTargetError::noDefaultList));
    Reminder reminder{parsed.title, std::nullopt, std::nullopt};
    if (parsed.date) reminder.due = std::chrono::floor<std::chrono::minutes>(*parsed.date);
    if (parsed.hasTime) reminder.alarm = parsed.date;
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    const auto saved = store.save(reminder, **list, attempt.captureId(), stop);
    if (!saved) return storeFailed(saved.error());

    SavedItem item{(*list)->id, *saved, {}};
    std::string receipt = "Reminder saved";
    const std::string due = parsed.date ? CaptureDateParser::formatDateTime(*parsed.date, dependencies_.calendar) : "";
    if (parsed.date) receipt = "Reminder set — " + due;
    if (reminder.alarm && !store.ringsAlarms()) {
        item.alarm = attempt.captureId() + "-alarm";
        const auto rings = dependencies_.scheduler.scheduleReminderAlarm(*reminder.alarm, parsed.title, item.alarm);
        if (!rings) {
            // It is saved: a failure would make the user save it twice. The receipt says what is missing.
            receipt += " (no alert: notifications are off)";
            dependencies_.log.line("❌ RemindersTarget: The reminder's alarm could not be set: "
                                   + message(rings.error()));
        }
    }
    dependencies_.log.line("📝 RemindersTarget: Successfully scheduled native macOS Reminder: '"
                           + characterCount(parsed.title) + "' with due date: " + (parsed.date ? due : "none"));
    return CaptureReceipt{std::move(receipt), revealPath(store), std::nullopt, false, item.encoded()};
}

Result<std::string, CaptureError> RemindersTarget::undo(const std::string&, const std::string& undo,
                                                        std::stop_token stop) {
    const auto item = SavedItem::remove(dependencies_.store, EventEntity::reminder, undo, std::move(stop));
    if (!item) return unexpected(item.error());
    if (item->alarm.empty()) return "The reminder was removed.";
    if (const auto cancelled = dependencies_.scheduler.cancelPendingCapture(item->alarm); !cancelled)
        return "The reminder was removed, but its alert may still appear (" + cancelled.error().description + ").";
    return "The reminder was removed.";
}
} // namespace snipwren
