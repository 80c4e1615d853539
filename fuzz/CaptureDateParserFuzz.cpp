// The date recogniser and the parsers that are built on it, with a reference and a zone taken from the input too.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "parsing/dates/CaptureDateParser.h"
#include "parsing/dates/DateDetector.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace snipwren;
    static const Calendar calendars[] = {
        *Calendar::make("America/New_York", "en_US"), *Calendar::make("Asia/Tokyo", "ja_JP"),
        *Calendar::make("Europe/London", "en_GB"), *Calendar::make("Pacific/Apia", "en_NZ")};
    if (size < 4) return 0;
    const Calendar& calendar = calendars[data[0] % 4];
    // Three bytes of days: from 1970 to the year 9000.
    const int days = (data[1] | data[2] << 8 | (data[3] & 0x1F) << 16);
    const TimePoint now{std::chrono::hours(24) * days + std::chrono::minutes(data[3] * 5)};
    const std::string_view text(reinterpret_cast<const char*>(data) + 4, size - 4);
    std::size_t end = 0;
    for (const DateMatch& match : DateDetector::detect(text, now, calendar)) {
        if (match.start < end || match.end <= match.start || match.end > text.size()) std::abort();
        if (match.range.start != utf16Offset(text, match.start)) std::abort();
        end = match.end;
    }
    const auto parsed = CaptureDateParser::parseTitleAndDate(text, now, calendar);
    if (parsed.date && parsed.title.empty()) std::abort();
    const auto alarm = CaptureDateParser::parseAlarm(text, now, calendar);
    if (alarm.date && alarm.title.empty()) std::abort();
    return 0;
}
