#include "parsing/dates/HolidayReader.h"

#include "base/Text.h"

namespace snipwren {
using W = DateWord;

namespace {
struct Holiday {
    std::string_view name; // Longer names of the same beginning stand first. "'s" is left out.
    int month;             // 0: counted from Easter Sunday.
    int day;               // Of the month, or days after Easter.
    int weekday = -1;      // With it, `day` is the lowest day of the month that it may fall on.
    int shift = 0;         // Days after that.
};

constexpr Holiday holidays[] = {
    {"christmas eve", 12, 24},
    {"christmas day", 12, 25},
    {"christmas", 12, 25},
    {"xmas eve", 12, 24},
    {"xmas day", 12, 25},
    {"xmas", 12, 25},
    {"boxing day", 12, 26},
    {"new year eve", 12, 31},
    {"new years eve", 12, 31},
    {"new year day", 1, 1},
    {"new years day", 1, 1},
    {"new years", 1, 1},
    {"thanksgiving day", 11, 22, 4},
    {"thanksgiving", 11, 22, 4},
    {"black friday", 11, 22, 4, 1},
    {"cyber monday", 11, 22, 4, 4},
    {"halloween", 10, 31},
    {"valentine day", 2, 14},
    {"valentines day", 2, 14},
    {"valentines", 2, 14},
    {"good friday", 0, -2},
    {"easter monday", 0, 1},
    {"easter sunday", 0, 0},
    {"easter", 0, 0},
    {"independence day", 7, 4},
    {"labor day", 9, 1, 1},
    {"labour day", 9, 1, 1},
    {"memorial day", 5, 25, 1},
    {"veterans day", 11, 11},
    {"columbus day", 10, 8, 1},
    {"presidents day", 2, 15, 1},
    {"mlk day", 1, 15, 1},
    {"juneteenth", 6, 19},
    {"mother day", 5, 8, 0},
    {"mothers day", 5, 8, 0},
    {"father day", 6, 15, 0},
    {"fathers day", 6, 15, 0},
    {"groundhog day", 2, 2},
};

/// The Gregorian computus.
std::chrono::sys_days easterSunday(int year) {
    const int a = year % 19;
    const int b = year / 100;
    const int c = year % 100;
    const int h = (19 * a + b - b / 4 - (b - (b + 8) / 25 + 1) / 3 + 15) % 30;
    const int l = (32 + 2 * (b % 4) + 2 * (c / 4) - h - c % 4) % 7;
    const int m = (a + 11 * h + 22 * l) / 451;
    const int n = h + l - 7 * m + 114;
    return *dayOf(year, n / 31, n % 31 + 1);
}

std::chrono::sys_days dateOf(const Holiday& holiday, int year) {
    using std::chrono::days;
    if (holiday.month == 0) return easterSunday(year) + days(holiday.day);
    const std::chrono::sys_days day = *dayOf(year, holiday.month, holiday.day);
    if (holiday.weekday < 0) return day;
    const int weekday = static_cast<int>(std::chrono::weekday(day).c_encoding());
    return day + days((holiday.weekday - weekday + 7) % 7 + holiday.shift);
}
} // namespace

std::size_t HolidayReader::nameEnd(std::size_t index, std::string_view name) const {
    for (const std::string_view word : split(name, ' ')) {
        const std::string_view text = tokens_.text(tokens_[index]);
        if (text.size() != word.size() || asciiLowercased(text) != word || tokens_[index].kind == W::end) return 0;
        ++index;
        if (tokens_.isApostrophe(index) && tokens_.text(tokens_[index + 1]) == "s" && tokens_.glued(index + 1))
            index += 2;
    }
    return index;
}

NamedDay HolidayReader::read(std::size_t index, bool past) const {
    for (const Holiday& holiday : holidays) {
        const std::size_t end = nameEnd(index, holiday.name);
        if (end == 0) continue;
        NamedDay date;
        date.kind = NamedDay::Kind::holiday;
        date.end = end;
        int year = 0;
        if (const std::size_t stop = monthDates_.yearEnd(end, year)) {
            date.end = stop;
            date.day = dateOf(holiday, year);
            return date;
        }
        date.yearless = true;
        date.weak = !holiday.name.ends_with(" eve"); // "christmas tree" names no day.
        year = reference_.now.year;
        date.day = dateOf(holiday, year);
        if (past && date.day >= reference_.today) date.day = dateOf(holiday, year - 1);
        if (!past && date.day < reference_.today) date.day = dateOf(holiday, year + 1);
        return date;
    }
    return {};
}
} // namespace snipwren
