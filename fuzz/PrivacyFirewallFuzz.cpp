#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "store/DatabaseManager.h"
#include "store/PrivacyFirewall.h"

using namespace snipwren;

// Any text is examined in bounded time, and the quick looks before the patterns change no answer.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static PosixFileIO files;
    static const Paths paths;
    static ManualClock clock{TimePoint{}};
    static ManualQueue queue("database", clock);
    static const UserDefaults defaults(files, "");
    static MemoryLog log;
    static DatabaseManager database(
        {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = queue, .log = log});
    static PrivacyFirewall firewall({.database = database, .clock = clock, .refreshQueue = queue});
    static const auto compiled = [](const char* pattern) { return std::move(*Regex::compile(pattern)); };
    static const Regex patterns[] = {compiled(R"(\bAKIA[0-9A-Z]{16}\b)"), compiled(R"(\bsk_live_[0-9a-zA-Z]{24}\b)"),
                                     compiled(R"(\bxox[baprs]-[0-9a-zA-Z\-]+\b)"),
                                     compiled(R"(mongodb\+srv:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)"),
                                     compiled(R"(postgres:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)")};
    static const Regex token = compiled(R"(\b[A-Za-z0-9+/=]{20,}\b)");
    static const Regex card = compiled(R"(\b(?:\d[\s-]*){13,19}\b)");

    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool refused = firewall.carriesCredentials(text);
    for (const Regex& pattern : patterns)
        if (pattern.contains(text).value_or(false) && !refused) std::abort();
    const auto tokens = token.allMatches(text);
    const auto cards = card.allMatches(text);
    if (!refused) return 0;
    const bool holdsKey = text.find("PRIVATE KEY-----") != std::string_view::npos;
    bool mayBeRefused = holdsKey || !tokens || !tokens->empty() || !cards || !cards->empty();
    for (const Regex& pattern : patterns) mayBeRefused = mayBeRefused || pattern.contains(text).value_or(true);
    if (!mayBeRefused) std::abort();
    return 0;
}
