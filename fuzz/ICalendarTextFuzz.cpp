#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/Text.h"
#include "hosts/portable/ICalendarText.h"

/// Whatever was typed as a title, the file keeps its shape: short lines of whole characters, and the lines of one item.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace snipwren;
    static const Calendar calendar = *Calendar::make("Africa/Cairo", "en_GB");
    const std::string title(reinterpret_cast<const char*>(data), size);
    const std::string text = ICalendarText::reminder({title, TimePoint{}, TimePoint{}}, "uid", TimePoint{}, calendar);
    if (text.size() < 2 || text.substr(text.size() - 2) != "\r\n") std::abort();
    int begins = 0;
    const std::string plain = replacedAll(text, "\r\n", "\n");
    for (const std::string_view line : split(plain, '\n')) {
        if (line.size() > 75 || line.find('\r') != std::string_view::npos || !isValidUtf8(line)) std::abort();
        if (line.substr(0, 6) == "BEGIN:") ++begins;
    }
    const std::string bare = ICalendarText::reminder({"", TimePoint{}, TimePoint{}}, "uid", TimePoint{}, calendar);
    int expected = 0;
    for (const std::string_view line : split(bare, '\n'))
        if (line.substr(0, 6) == "BEGIN:") ++expected;
    if (begins != expected) std::abort();
    return 0;
}
