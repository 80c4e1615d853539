#include "base/Calendar.h"

#include <array>
#include <cstdlib>
#include <stdexcept>

#include <date/tz.h>
#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>

namespace snipwren {
namespace {
using std::chrono::seconds;

date::local_seconds localSeconds(const CivilTime& civil) {
    const date::local_days day(date::year(civil.year) / date::month(static_cast<unsigned>(civil.month))
                               / date::day(static_cast<unsigned>(civil.day)));
    return day + std::chrono::hours(civil.hour) + std::chrono::minutes(civil.minute) + seconds(civil.second);
}

CivilTime civilFrom(date::local_seconds local) {
    const auto day = date::floor<date::days>(local);
    const date::year_month_day ymd(day);
    const auto rest = (local - day).count();
    return {static_cast<int>(ymd.year()),
            static_cast<int>(static_cast<unsigned>(ymd.month())),
            static_cast<int>(static_cast<unsigned>(ymd.day())),
            static_cast<int>(rest / 3600),
            static_cast<int>(rest / 60 % 60),
            static_cast<int>(rest % 60)};
}

/// ICU is handed the civil fields as if they were UTC, so that its own, older zone data never takes part.
std::string formatCivil(icu::DateFormat& format, const CivilTime& civil) {
    format.setTimeZone(*icu::TimeZone::getGMT());
    icu::UnicodeString out;
    UErrorCode status = U_ZERO_ERROR; // A pattern's unknown letters are noticed only here.
    format.format(static_cast<UDate>(localSeconds(civil).time_since_epoch().count()) * 1000.0, out, nullptr, status);
    if (U_FAILURE(status)) return {};
    std::string utf8;
    return out.toUTF8String(utf8);
}

std::string formatPattern(const icu::Locale& locale, std::string_view pattern, const CivilTime& civil) {
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat format(
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size()))), locale,
        status);
    if (U_FAILURE(status)) return {};
    return formatCivil(format, civil);
}

std::string environment(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): read once, at start-up.
    return value ? value : "";
}
} // namespace

struct Calendar::State {
    const date::time_zone* zone = nullptr;
    std::string zoneName;
    std::string localeName;
    icu::Locale locale;
    int firstWeekday = 0;
    bool monthBeforeDay = true;
};

int weekdayOf(int year, int month, int day) {
    const date::sys_days days =
        date::year(year) / date::month(static_cast<unsigned>(month)) / date::day(static_cast<unsigned>(day));
    return static_cast<int>(date::weekday(days).c_encoding());
}

int daysInMonth(int year, int month) {
    constexpr std::array<int, 12> lengths{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    const bool leap = date::year(year).is_leap();
    return month == 2 && leap ? 29 : lengths[static_cast<std::size_t>(month - 1)];
}

bool isValidDate(int year, int month, int day) {
    return year >= -9999 && year <= 9999 && day >= 1 && day <= daysInMonth(year, month);
}

Result<Calendar, CalendarError> Calendar::make(std::string_view zone, std::string_view locale) {
    auto state = std::make_shared<State>();
    try {
        state->zone = date::locate_zone(std::string(zone));
    } catch (const std::runtime_error&) {
        return unexpected(CalendarError{"There is no time zone named \"" + std::string(zone)
                                        + "\". Try: Europe/London, America/New_York, or UTC"});
    }
    state->zoneName = std::string(zone);
    state->localeName = std::string(locale);
    state->locale = icu::Locale(state->localeName.c_str());
    if (state->locale.isBogus() || *state->locale.getLanguage() == '\0') state->locale = icu::Locale("en_US");
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::Calendar> rules(icu::Calendar::createInstance(state->locale, status));
    if (U_SUCCESS(status)) {
        const UCalendarDaysOfWeek first = rules->getFirstDayOfWeek(status);
        if (U_SUCCESS(status)) state->firstWeekday = static_cast<int>(first) - static_cast<int>(UCAL_SUNDAY);
    }
    const std::unique_ptr<icu::DateFormat> shortDate(
        icu::DateFormat::createDateInstance(icu::DateFormat::kShort, state->locale));
    if (const auto* simple = dynamic_cast<const icu::SimpleDateFormat*>(shortDate.get())) {
        icu::UnicodeString pattern;
        simple->toPattern(pattern);
        const int month = pattern.indexOf(u'M');
        const int day = pattern.indexOf(u'd');
        state->monthBeforeDay = month >= 0 && (day < 0 || month < day);
    }
    return Calendar(std::move(state));
}

Calendar Calendar::system() {
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_TIME", "LANG"})
        if (locale.empty()) locale = environment(name);
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") locale = "en_US";
    std::string zone = environment("TZ");
    if (!zone.empty() && zone.front() == ':') zone.erase(0, 1);
    if (!zone.empty())
        if (auto calendar = make(zone, locale)) return *calendar;
    try {
        if (auto calendar = make(date::current_zone()->name(), locale)) return *calendar;
    } catch (const std::runtime_error&) {
        // No readable local time on this machine: UTC below.
    }
    if (auto calendar = make("UTC", locale)) return *calendar;
    throw std::runtime_error("the system's time zone database is missing; install the package tzdata");
}

const std::string& Calendar::zoneName() const { return state_->zoneName; }
const std::string& Calendar::localeName() const { return state_->localeName; }
bool Calendar::monthBeforeDay() const { return state_->monthBeforeDay; }
int Calendar::firstWeekday() const { return state_->firstWeekday; }

std::chrono::seconds Calendar::utcOffset(TimePoint moment) const {
    return state_->zone->get_info(std::chrono::floor<seconds>(moment)).offset;
}

CivilTime Calendar::civil(TimePoint moment) const {
    const auto whole = std::chrono::floor<seconds>(moment);
    return civilFrom(date::local_seconds((whole + utcOffset(moment)).time_since_epoch()));
}

std::optional<TimePoint> Calendar::resolve(const CivilTime& civil) const {
    if (!isValidDate(civil.year, civil.month, civil.day)) return std::nullopt;
    if (civil.hour < 0 || civil.hour > 23 || civil.minute < 0 || civil.minute > 59 || civil.second < 0
        || civil.second > 59)
        return std::nullopt;
    const date::local_seconds local = localSeconds(civil);
    const date::local_info info = state_->zone->get_info(local);
    // In a gap the offset before it carries the civil time past the gap; in an overlap `first` is the earlier moment.
    return TimePoint(local.time_since_epoch() - info.first.offset);
}

bool Calendar::isInOverlap(TimePoint moment) const {
    return state_->zone->get_info(localSeconds(civil(moment))).result == date::local_info::ambiguous;
}

TimePoint Calendar::startOfDay(TimePoint moment) const {
    CivilTime day = civil(moment);
    day.hour = day.minute = day.second = 0;
    return resolve(day).value_or(moment);
}

TimePoint Calendar::addingDays(TimePoint moment, int days) const {
    const auto fraction = moment - std::chrono::floor<seconds>(moment);
    const CivilTime moved = civilFrom(localSeconds(civil(moment)) + date::days(days));
    const auto resolved = resolve(moved);
    return resolved ? *resolved + fraction : moment;
}

TimePoint Calendar::addingMonths(TimePoint moment, int months) const {
    const auto fraction = moment - std::chrono::floor<seconds>(moment);
    CivilTime moved = civil(moment);
    const int index = moved.year * 12 + (moved.month - 1) + months;
    moved.year = index >= 0 ? index / 12 : (index - 11) / 12;
    moved.month = index - moved.year * 12 + 1;
    moved.day = std::min(moved.day, daysInMonth(moved.year, moved.month));
    const auto resolved = resolve(moved);
    return resolved ? *resolved + fraction : moment;
}

TimePoint Calendar::addingYears(TimePoint moment, int years) const { return addingMonths(moment, years * 12); }

int Calendar::daysBetween(TimePoint from, TimePoint to) const {
    const auto day = [this](TimePoint moment) { return date::floor<date::days>(localSeconds(civil(moment))); };
    return static_cast<int>((day(to) - day(from)).count());
}

int Calendar::weekday(TimePoint moment) const {
    const CivilTime day = civil(moment);
    return weekdayOf(day.year, day.month, day.day);
}

TimePoint Calendar::startOfWeek(TimePoint moment) const {
    const int back = (weekday(moment) - firstWeekday() + 7) % 7;
    return startOfDay(addingDays(startOfDay(moment), -back));
}

std::string Calendar::formatPosix(TimePoint moment, std::string_view pattern) const {
    return formatPattern(icu::Locale("en_US_POSIX"), pattern, civil(moment));
}

std::string Calendar::format(TimePoint moment, std::string_view pattern) const {
    return formatPattern(state_->locale, pattern, civil(moment));
}

std::string Calendar::formatTime(TimePoint moment) const {
    const std::unique_ptr<icu::DateFormat> format(
        icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, state_->locale));
    return format ? formatCivil(*format, civil(moment)) : std::string();
}

std::string Calendar::formatDateTime(TimePoint moment) const {
    const std::unique_ptr<icu::DateFormat> format(
        icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort, state_->locale));
    return format ? formatCivil(*format, civil(moment)) : std::string();
}
} // namespace snipwren
