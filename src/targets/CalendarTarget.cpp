#include "targets/CalendarTarget.h"

#include "base/Text.h"
#include "parsing/CaptureDateParser.h"
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

Result<void, CaptureError> CalendarTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                std::stop_token stop) {
    const auto failed = [](CalendarTargetError error) {
        return unexpected(captureError("CalendarTargetError", error));
    };
    const auto storeFailed = [](const EventStoreError& error) {
        return unexpected(CaptureError{"EventStore", 1, error.description});
    };
    const std::string capture(trimmed(text));
    if (capture.empty()) return failed(CalendarTargetError::emptyInput);
    EventStore& store = dependencies_.store;
    if (!store.requestAccess(EventEntity::event, stop)) {
        if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
        return failed(CalendarTargetError::permissionDenied);
    }
    const auto parsed =
        CaptureDateParser::parseTitleAndDate(capture, dependencies_.clock.now(), dependencies_.calendar);
    const auto start = CaptureDateParser::dateWithDefaultMorningTime(parsed, dependencies_.calendar);
    if (!start) return failed(CalendarTargetError::noDateTime);
    const auto list = store.defaultList(EventEntity::event, stop);
    if (!list) return storeFailed(list.error());
    if (!*list) return failed(CalendarTargetError::noWritableCalendar);
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    if (const auto saved = store.save(CalendarEvent{parsed.title, *start, *start + eventLength}, **list, stop); !saved)
        return storeFailed(saved.error());
    const std::string moment = CaptureDateParser::formatDateTime(*start, dependencies_.calendar);
    dependencies_.landing.announce(
        {commandName_, capture, "Event added — " + moment, revealPath(store), std::nullopt, false});
    dependencies_.log.line("📅 CalendarTarget: Created event '" + parsed.title + "' at " + moment);
    return {};
}
} // namespace snipwren
