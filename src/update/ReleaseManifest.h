#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace snipwren {
/// What the update service publishes about the newest release.
struct ReleaseManifest {
    static constexpr std::size_t maxBytes = 256 * 1024;
    static constexpr std::size_t maxNoteLines = 40;
    static constexpr std::size_t maxNoteCharacters = 300;

    std::string version;
    std::int64_t build = 0;
    std::string minimumSystemVersion;
    std::string dmgURL;
    std::string sha256;
    std::vector<std::string> releaseNotes;
    friend bool operator==(const ReleaseManifest&, const ReleaseManifest&) = default;

    enum class Error { invalid, missingSecurityFields };
    /// Every byte is taken for hostile: the version becomes part of a file name, the notes of a text on the screen.
    static Result<ReleaseManifest, Error> parse(std::string_view json);

    /// True for https to exactly the update service, on its own port.
    static bool validDownloadURL(std::string_view url);
};

/// Compares dotted numbers part by part; a missing part counts as 0, what follows a part's digits is ignored.
std::strong_ordering compareVersions(std::string_view left, std::string_view right);
} // namespace snipwren
