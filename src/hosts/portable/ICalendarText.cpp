#include "hosts/portable/ICalendarText.h"

#include <initializer_list>

#include <date/tz.h>
#include <fmt/format.h>

#include "base/Text.h"

namespace snipwren {
namespace {
using std::chrono::seconds;

/// Rules this far around the item: readers need no more, and long histories make some of them fail.
constexpr auto zoneWindow = std::chrono::hours(24) * 370;
constexpr std::size_t maxLine = 75;

std::string stamp(const CivilTime& time) {
    return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}", time.year, time.month, time.day, time.hour, time.minute,
                       time.second);
}

CivilTime civilAt(date::sys_seconds moment, seconds offset) {
    const date::local_seconds local((moment + offset).time_since_epoch());
    const auto day = date::floor<date::days>(local);
    const date::year_month_day ymd(day);
    const date::hh_mm_ss<seconds> time(local - day);
    return {static_cast<int>(ymd.year()),
            static_cast<int>(static_cast<unsigned>(ymd.month())),
            static_cast<int>(static_cast<unsigned>(ymd.day())),
            static_cast<int>(time.hours().count()),
            static_cast<int>(time.minutes().count()),
            static_cast<int>(time.seconds().count())};
}

std::string utc(TimePoint moment) { return stamp(civilAt(std::chrono::floor<seconds>(moment), seconds(0))) + "Z"; }

std::string offsetText(seconds offset) {
    const char sign = offset < seconds(0) ? '-' : '+';
    const auto total = std::chrono::abs(offset).count();
    std::string text = fmt::format("{}{:02}{:02}", sign, total / 3600, total / 60 % 60);
    if (total % 60 != 0) text += fmt::format("{:02}", total % 60);
    return text;
}

class Writer {
public:
    void line(std::string_view text) { out_ += ICalendarText::folded(text); }
    void begin(const char* component) { line(fmt::format("BEGIN:{}", component)); }
    void end(const char* component) { line(fmt::format("END:{}", component)); }
    void beginCalendar() {
        begin("VCALENDAR");
        line("VERSION:2.0");
        line("PRODID:-//Snipwren//Snipwren 1.0//EN");
    }
    void identify(std::string_view uid, TimePoint now) {
        line(fmt::format("UID:{}", uid));
        line("DTSTAMP:" + utc(now));
        line("CREATED:" + utc(now));
    }

    void zone(const std::string& name, TimePoint around) {
        const date::time_zone* const rules = date::locate_zone(name);
        const date::sys_seconds first = std::chrono::floor<seconds>(around) - zoneWindow;
        const date::sys_seconds last = std::chrono::floor<seconds>(around) + zoneWindow;
        begin("VTIMEZONE");
        line("TZID:" + name);
        date::sys_info info = rules->get_info(first);
        observance(first, info.offset, info);
        while (info.end < last) {
            const seconds from = info.offset;
            const date::sys_seconds at = info.end;
            info = rules->get_info(at);
            observance(at, from, info);
        }
        end("VTIMEZONE");
    }

    /// Some moments of one item, all in local time or all in UTC.
    void moments(std::initializer_list<std::pair<const char*, TimePoint>> values, const Calendar& calendar,
                 bool inUtc) {
        for (const auto& [property, moment] : values)
            line(inUtc ? fmt::format("{}:{}", property, utc(moment))
                       : fmt::format("{};TZID={}:{}", property, calendar.zoneName(), stamp(calendar.civil(moment))));
    }

    std::string take() { return std::move(out_); }

private:
    void observance(date::sys_seconds at, seconds from, const date::sys_info& info) {
        const char* const kind = info.save != std::chrono::minutes(0) ? "DAYLIGHT" : "STANDARD";
        begin(kind);
        line("DTSTART:" + stamp(civilAt(at, from))); // In the time that was left.
        line("TZOFFSETFROM:" + offsetText(from));
        line("TZOFFSETTO:" + offsetText(info.offset));
        line("TZNAME:" + info.abbrev);
        end(kind);
    }

    std::string out_;
};

/// A local time that occurs twice cannot say which is meant.
bool needsUtc(std::initializer_list<TimePoint> moments, const Calendar& calendar) {
    const std::string& zone = calendar.zoneName();
    if (zone == "UTC" || zone == "Etc/UTC") return true;
    for (const TimePoint moment : moments)
        if (calendar.isInOverlap(moment)) return true;
    return false;
}
} // namespace

std::string ICalendarText::escaped(std::string_view text) {
    std::string out;
    for (const char c : sanitizedUtf8(replacedAll(text, "\r\n", "\n"))) {
        if (c == '\\' || c == ';' || c == ',') {
            out += '\\';
            out += c;
        } else if (c == '\n' || c == '\r') {
            out += "\\n";
        } else if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) {
            out += c;
        } else if (c == '\t') {
            out += c;
        }
    }
    return out;
}

std::string ICalendarText::folded(std::string_view line) {
    std::string out;
    std::size_t room = maxLine;
    while (line.size() > room) {
        std::size_t cut = room;
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) --cut;
        out += line.substr(0, cut);
        out += "\r\n ";
        line.remove_prefix(cut);
        room = maxLine - 1; // The blank that begins a continued line counts.
    }
    out += line;
    out += "\r\n";
    return out;
}

std::string ICalendarText::reminder(const Reminder& reminder, std::string_view uid, TimePoint now,
                                    const Calendar& calendar) {
    const bool inUtc = reminder.due && needsUtc({*reminder.due}, calendar);
    const std::string title = escaped(reminder.title);
    Writer out;
    out.beginCalendar();
    if (reminder.due && !inUtc) out.zone(calendar.zoneName(), *reminder.due);
    out.begin("VTODO");
    out.identify(uid, now);
    out.line("SUMMARY:" + title);
    out.line("STATUS:NEEDS-ACTION");
    if (reminder.due) out.moments({{"DUE", *reminder.due}}, calendar, inUtc);
    if (reminder.alarm) {
        out.begin("VALARM");
        out.line("ACTION:DISPLAY");
        out.line("DESCRIPTION:" + title);
        out.line("TRIGGER;VALUE=DATE-TIME:" + utc(*reminder.alarm));
        out.end("VALARM");
    }
    out.end("VTODO");
    out.end("VCALENDAR");
    return out.take();
}

std::string ICalendarText::event(const CalendarEvent& event, std::string_view uid, TimePoint now,
                                 const Calendar& calendar) {
    const bool inUtc = needsUtc({event.start, event.end}, calendar);
    Writer out;
    out.beginCalendar();
    if (!inUtc) out.zone(calendar.zoneName(), event.start);
    out.begin("VEVENT");
    out.identify(uid, now);
    out.line("SUMMARY:" + escaped(event.title));
    out.moments({{"DTSTART", event.start}, {"DTEND", event.end}}, calendar, inUtc);
    out.end("VEVENT");
    out.end("VCALENDAR");
    return out.take();
}
} // namespace snipwren
