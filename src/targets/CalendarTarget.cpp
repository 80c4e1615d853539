#include "targets/CalendarTarget.h"

#include "base/Text.h"
#include "parsing/dates/CaptureDateParser.h"
#include "targets/PreviewText.h"
#include "targets/SavedItem.h"
#include "targets/TargetErrors.h"

namespace snipwren {
namespace {
constexpr const char* systemProgram = "/System/Applications/Calendar.app";

std::optional<std::string> revealPath(const EventStore& store) {
    auto path = store.revealPath(EventEntity::event);
    if (!path) return systemProgram;
    if (path->empty()) return std::nullopt;
    return path;
}
} // namespace

std::string_view message(CalendarTargetError error) {
    switch (error) {
    case CalendarTargetError::emptyInput: return "Calendar text is empty. Try: standup tomorrow 2pm";
    case CalendarTargetError::noDateTime: return "Could not find a date or time. Try: standup tomorrow 2pm";
    case CalendarTargetError::permissionDenied:
        return "Calendar access was denied. Grant access in System Settings → Privacy & Security → Calendars.";
    case CalendarTargetError::noWritableCalendar:
        return "No writable calendar found. Open the Calendar app and configure at least one calendar.";
    }
    return {};
}

std::optional<std::string> CalendarTarget::preview(const std::string& text) const {
    constexpr std::string_view dayOnlyAdvice = "Only the day is read. Name a clock time, such as at 3pm";
    const std::string_view body = trimmed(text);
    if (body.empty()) return std::nullopt;
    const TimePoint now = dependencies_.clock.now();
    const Calendar& calendar = dependencies_.calendar;
    const auto parsed = CaptureDateParser::parseTitleAndDate(body, now, calendar);
    const auto start = CaptureDateParser::dateWithDefaultMorningTime(parsed, calendar);
    if (!start) return std::string(PreviewText::noDate);
    const bool isMisread = !parsed.hasTime && PreviewText::namesCountdown(body, now, calendar);
    return PreviewText::withAdvice(PreviewText::joined(PreviewText::day(*start, true, now, calendar), parsed.title),
                                   isMisread ? dayOnlyAdvice : std::string_view());
}

CaptureFailureGuide CalendarTarget::failureGuide(std::string_view detail) const {
    if (!CaptureFailureGuide::isPermissionProblem(detail)) return CaptureFailureGuide::recovery();
    return {"Privacy & Permissions", word, "Open permissions"};
}

Result<CaptureReceipt, CaptureError> CalendarTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                          CaptureAttempt& attempt) {
    const auto failed = [](CalendarTargetError error) {
        return unexpected(captureError("CalendarTargetError", error));
    };
    const auto storeFailed = [](const EventStoreError& error) { return unexpected(SavedItem::failure(error)); };
    const std::stop_token& stop = attempt.stop();
    const std::string capture(trimmed(text));
    if (capture.empty()) return failed(CalendarTargetError::emptyInput);
    EventStore& store = dependencies_.store;
    if (!store.requestAccess(EventEntity::event, stop)) {
        if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
        return failed(CalendarTargetError::permissionDenied);
    }
    const auto parsed = CaptureDateParser::parseTitleAndDate(capture, attempt.confirmedAt(), dependencies_.calendar);
    const auto start = CaptureDateParser::dateWithDefaultMorningTime(parsed, dependencies_.calendar);
    if (!start) return failed(CalendarTargetError::noDateTime);
    const auto list = store.defaultList(EventEntity::event, stop);
    if (!list) return storeFailed(list.error());
    if (!*list) return failed(CalendarTargetError::noWritableCalendar);
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    const CalendarEvent event{parsed.title, *start, *start + eventLength};
    const auto saved = store.save(event, **list, attempt.captureId(), stop);
    if (!saved) return storeFailed(saved.error());
    const std::string moment = CaptureDateParser::formatDateTime(*start, dependencies_.calendar);
    dependencies_.log.line("📅 CalendarTarget: Created event '" + characterCount(parsed.title) + "' at " + moment);
    return CaptureReceipt{"Event added — " + moment, revealPath(store), std::nullopt, false,
                          SavedItem{(*list)->id, *saved, {}}.encoded()};
}

Result<std::string, CaptureError> CalendarTarget::undo(const std::string&, const std::string& undo,
                                                       std::stop_token stop) {
    const auto item = SavedItem::remove(dependencies_.store, EventEntity::event, undo, std::move(stop));
    if (!item) return unexpected(item.error());
    return "The event was removed from the calendar.";
}
} // namespace snipwren
