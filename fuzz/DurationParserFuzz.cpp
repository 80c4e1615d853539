// Any text: a result is within the limits, and its display text reads back as a duration.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "parsing/DurationParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace snipwren;
    const auto result = DurationParser::parse(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!result) return 0;
    if (!(result->interval >= DurationParser::minInterval) || result->interval > DurationParser::maxInterval)
        std::abort();
    if (result->label && result->label->empty()) std::abort();
    if (!DurationParser::parse(result->displayDuration)) std::abort();
    return 0;
}
