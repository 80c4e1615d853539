#pragma once

#include <string>
#include <string_view>

#include "base/Calendar.h"
#include "platform/EventStore.h"

namespace snipwren {
/// Writes reminders and events as iCalendar files (RFC 5545), one item each, so that the usual programs read them alike:
/// local times with the rules of their zone around the item, and UTC where a local time would be ambiguous.
class ICalendarText {
public:
    ICalendarText() = delete;
    static std::string reminder(const Reminder& reminder, std::string_view uid, TimePoint now,
                                const Calendar& calendar);
    static std::string event(const CalendarEvent& event, std::string_view uid, TimePoint now, const Calendar& calendar);
    /// A content line, folded to at most 75 bytes without breaking a character.
    static std::string folded(std::string_view line);
    /// A text value: separators and newlines escaped, other control characters left out.
    static std::string escaped(std::string_view text);
};
} // namespace snipwren
