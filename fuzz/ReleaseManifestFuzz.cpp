#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "update/ReleaseManifest.h"

// Whatever parses must be safe to use: a file name without a path, an address of the one host, bounded notes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using snipwren::ReleaseManifest;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (ReleaseManifest::validDownloadURL(text) && !text.substr(0, 8).ends_with("//")) std::abort();
    if (const auto manifest = ReleaseManifest::parse(text)) {
        if (manifest->version.find('/') != std::string::npos || manifest->sha256.size() != 64
            || !ReleaseManifest::validDownloadURL(manifest->dmgURL)
            || manifest->releaseNotes.size() > ReleaseManifest::maxNoteLines)
            std::abort();
        (void)snipwren::compareVersions(manifest->version, manifest->minimumSystemVersion);
    }
    const std::size_t half = size / 2;
    const auto forth = snipwren::compareVersions(text.substr(0, half), text.substr(half));
    const auto back = snipwren::compareVersions(text.substr(half), text.substr(0, half));
    if ((forth < 0) != (back > 0)) std::abort();
    return 0;
}
