#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ai/AIStreamReader.h"
#include "ai/JsonScanner.h"
#include "base/Text.h"

namespace {
std::string outcome(snipwren::AIStreamReader::Format format, std::string_view stream, std::size_t piece) {
    std::string shown;
    snipwren::AIStreamReader reader(format, [&](std::string_view text) {
        if (!snipwren::isValidUtf8(text)) std::abort();
        shown += text;
    });
    for (std::size_t at = 0; at < stream.size() && reader.feed(stream.substr(at, piece)); at += piece) {}
    const auto answer = reader.finish();
    return shown + (answer ? "\nok " + answer->text : "\nfailed " + answer.error().description);
}
} // namespace

// Where the network cuts a stream makes no difference, and the scanner accepts nothing that the JSON library refuses.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    using Format = snipwren::AIStreamReader::Format;
    const auto format = static_cast<Format>(data[0] % 3);
    const std::size_t piece = data[1] % 16 + 1u;
    const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
    if (outcome(format, text, piece) != outcome(format, text, size)) std::abort();

    const bool accepted = snipwren::JsonScanner::scan(text, [](const snipwren::JsonLeaf& leaf) {
        std::string plain;
        if (leaf.kind == snipwren::JsonLeaf::Kind::string) snipwren::JsonScanner::appendUnescaped(plain, leaf.raw);
    });
    // The library also refuses what the scanner lets pass on purpose: broken UTF-8, lone surrogates, numbers beyond a
    // double's range.
    const bool comparable = snipwren::isValidUtf8(text) && text.find("\\u") == std::string_view::npos
                            && text.find_first_of("eE") == std::string_view::npos && size < 300;
    if (accepted && comparable && !nlohmann::json::accept(text)) std::abort();
    return 0;
}
