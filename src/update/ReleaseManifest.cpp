#include "update/ReleaseManifest.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "update/UpdateService.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;
constexpr std::size_t maxVersionBytes = 32;
constexpr std::size_t maxUrlBytes = 2048;
constexpr std::size_t checksumDigits = 64;

bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isAsciiDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool isVersion(std::string_view text) {
    const auto allowed = [](char c) {
        return isAsciiDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' || c == '+';
    };
    return !text.empty() && text.size() <= maxVersionBytes && isAsciiDigit(text.front())
           && std::all_of(text.begin(), text.end(), allowed);
}

/// One line of plain text: control and text-direction characters could disguise what follows.
std::string displayLine(std::string_view text) {
    std::string line;
    std::size_t characters = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        char32_t scalar = nextScalar(text, offset);
        const bool reorders = (scalar >= 0x202A && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
        if (scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0) || scalar == 0x2028 || scalar == 0x2029 || reorders)
            scalar = U' ';
        if (++characters > ReleaseManifest::maxNoteCharacters) return line + "…";
        appendUtf8(line, scalar);
    }
    return std::string(trimmed(line));
}

/// The digits before anything else, without leading zeros: compared as text they need no bound.
std::string_view leadingNumber(std::string_view part) {
    const auto end = std::find_if_not(part.begin(), part.end(), isAsciiDigit);
    part = part.substr(0, static_cast<std::size_t>(end - part.begin()));
    return part.substr(std::min(part.find_first_not_of('0'), part.size()));
}
} // namespace

Result<ReleaseManifest, ReleaseManifest::Error> ReleaseManifest::parse(std::string_view json) {
    const Json object = json.size() > maxBytes ? Json() : Json::parse(json, nullptr, false);
    if (!object.is_object()) return unexpected(Error::invalid);
    const auto text = [&](const char* key) -> const std::string* {
        const auto found = object.find(key);
        return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
    };
    const std::string* const version = text("version");
    const std::string* const minimum = text("minimumSystemVersion");
    const std::string* const url = text("dmgURL");
    const std::string* const checksum = text("sha256");
    const auto build = object.find("build");
    const auto notes = object.find("releaseNotes");
    const bool complete = version && minimum && url && checksum && build != object.end() && build->is_number_integer()
                          && notes != object.end() && notes->is_array();
    if (!complete || !isVersion(*version) || !(minimum->empty() || isVersion(*minimum)))
        return unexpected(Error::invalid);
    // An unsigned number beyond the signed range would wrap.
    if (build->is_number_unsigned() && build->get<std::uint64_t>() > INT64_MAX) return unexpected(Error::invalid);
    if (build->get<std::int64_t>() < 0) return unexpected(Error::invalid);

    ReleaseManifest manifest{*version, build->get<std::int64_t>(), *minimum, *url, *checksum, {}};
    for (const Json& note : *notes) {
        if (!note.is_string()) return unexpected(Error::invalid);
        if (manifest.releaseNotes.size() == maxNoteLines) continue;
        if (std::string line = displayLine(note.get_ref<const std::string&>()); !line.empty())
            manifest.releaseNotes.push_back(std::move(line));
    }
    if (checksum->size() != checksumDigits || !std::all_of(checksum->begin(), checksum->end(), isHexDigit)
        || !validDownloadURL(*url))
        return unexpected(Error::missingSecurityFields);
    manifest.sha256 = asciiLowercased(*checksum);
    return manifest;
}

bool ReleaseManifest::validDownloadURL(std::string_view url) {
    constexpr std::string_view scheme = "https://";
    const auto printable = [](char c) { return c > ' ' && c < 0x7F && c != '\\'; };
    if (url.size() > maxUrlBytes || !std::all_of(url.begin(), url.end(), printable)) return false;
    if (asciiLowercased(url.substr(0, scheme.size())) != scheme) return false;
    // Everything up to the path is compared whole, so that no parser's idea of a host can differ from this one.
    const std::string_view rest = url.substr(scheme.size());
    std::string authority = asciiLowercased(rest.substr(0, rest.find_first_of("/?#")));
    if (authority.ends_with(":443")) authority.resize(authority.size() - 4);
    return authority == UpdateService::host;
}

std::strong_ordering compareVersions(std::string_view left, std::string_view right) {
    const auto leftParts = split(left, '.');
    const auto rightParts = split(right, '.');
    for (std::size_t i = 0; i < std::max(leftParts.size(), rightParts.size()); ++i) {
        const std::string_view a = i < leftParts.size() ? leadingNumber(leftParts[i]) : "";
        const std::string_view b = i < rightParts.size() ? leadingNumber(rightParts[i]) : "";
        if (a.size() != b.size()) return a.size() <=> b.size();
        if (const int order = a.compare(b)) return order <=> 0;
    }
    return std::strong_ordering::equal;
}
} // namespace snipwren
