#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/Text.h"
#include "records/FallbackCaptureLogger.h"

// Any line is read or skipped; what is written is read back as it was.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Logger = snipwren::FallbackCaptureLogger;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto entry = Logger::parseLine(bytes, 7)) {
        if (entry->target.empty() || !entry->id.ends_with("#7") || !snipwren::isValidUtf8(entry->text)) std::abort();
    }
    const std::string_view text = bytes.substr(size / 2);
    const std::string_view error = bytes.substr(0, size / 2);
    const std::string line = Logger::recordLine(text, "note", error, snipwren::TimePoint{});
    if (line.find('\n') != line.size() - 1) std::abort();
    const auto back = Logger::parseLine(line, 0);
    if (!back || back->text != snipwren::sanitizedUtf8(text) || back->errorDescription != snipwren::sanitizedUtf8(error)
        || back->target != "note")
        std::abort();
    return 0;
}
