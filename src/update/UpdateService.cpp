#include "update/UpdateService.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/TemporaryFile.h"
#include "platform/HttpClient.h"
#include "update/Sha256.h"

namespace snipwren {
namespace {
constexpr std::chrono::seconds requestTimeout{15};

UpdateFailure checkFailed(std::string text) { return {"Update Check Failed", std::move(text), false}; }

UpdateFailure installFailed(const char* title, std::string_view text) {
    return {title, fmt::format("{}\n\nSnipwren stayed open. Check for updates and try again.", text), false};
}

UpdateFailure downloadFailed(std::string_view text) { return installFailed("Update Download Failed", text); }

UpdateFailure unexpectedSize(std::string_view size) {
    return downloadFailed(fmt::format("The downloaded file size was unexpected ({} bytes).", size));
}

UpdateFailure cancelledByUser() { return {{}, {}, true}; }

/// Opening the file depends on its ending, so a release for another system keeps the one it was published with.
std::string_view fileEnding(std::string_view url) {
    const std::string_view path = url.substr(0, url.find_first_of("?#"));
    for (const std::string_view ending :
         {".dmg", ".deb", ".rpm", ".AppImage", ".flatpak", ".tar.gz", ".tar.xz", ".zip", ".pkg"})
        if (path.ends_with(ending)) return ending;
    return ".dmg";
}
} // namespace

Result<ReleaseManifest, UpdateFailure> UpdateService::fetchManifest(std::stop_token stop) const {
    HttpRequest request;
    request.url = manifestURLString;
    request.headers = {
        {"Accept", "application/json"}, {"User-Agent", "Snipwren/" + currentVersion_}, {"Cache-Control", "no-cache"}};
    request.connectTimeout = request.timeout = requestTimeout;
    request.totalTimeout = requestTimeout;
    request.maxResponseBytes = ReleaseManifest::maxBytes;
    request.followRedirect = ReleaseManifest::validDownloadURL;
    const auto answer = http_.send(request, stop);
    if (!answer && answer.error().kind == HttpErrorKind::cancelled) return unexpected(cancelledByUser());
    if (!answer)
        return unexpected(
            checkFailed(fmt::format("Could not reach the update service.\n\n{}", answer.error().description)));
    if (answer->status != 200)
        return unexpected(
            checkFailed(fmt::format("The update service returned HTTP {}. Try again later.", answer->status)));
    auto manifest = ReleaseManifest::parse(answer->body);
    if (manifest) return *std::move(manifest);
    switch (manifest.error()) {
    case ReleaseManifest::Error::invalid:
        return unexpected(checkFailed("The release manifest was invalid. No update was downloaded."));
    case ReleaseManifest::Error::missingSecurityFields: break;
    }
    return unexpected(checkFailed("The release manifest is missing required security fields."));
}

Result<std::string, UpdateFailure> UpdateService::download(const ReleaseManifest& manifest, const Progress& progress,
                                                           std::stop_token stop) const {
    if (const auto made = files_.createFolders(downloadsFolder_); !made)
        return unexpected(downloadFailed(made.error().description));
    auto file = TemporaryFile::create(downloadsFolder_);
    if (!file) return unexpected(downloadFailed(file.error().description));

    Sha256 hash;
    std::uint64_t size = 0;
    std::optional<UpdateFailure> failure;
    HttpRequest request;
    request.url = manifest.dmgURL;
    request.headers = {{"User-Agent", "Snipwren/" + currentVersion_}};
    request.connectTimeout = request.timeout = requestTimeout;
    request.maxResponseBytes = UINT64_MAX; // The sink's own bound knows the size to name.
    request.followRedirect = ReleaseManifest::validDownloadURL;
    request.bodySink = [&](std::string_view bytes, std::optional<std::uint64_t> whole) {
        size += bytes.size();
        if (whole.value_or(0) > bounds_.largest || (whole && *whole < bounds_.smallest)) {
            failure = unexpectedSize(std::to_string(*whole));
        } else if (size > bounds_.largest) {
            failure = unexpectedSize(fmt::format("more than {}", bounds_.largest));
        } else if (const auto written = file->write(bytes); !written) {
            failure = downloadFailed(written.error().description);
        } else {
            hash.update(bytes);
            if (progress) progress(whole ? static_cast<double>(size) / static_cast<double>(*whole) : -1);
        }
        return !failure;
    };
    const auto answer = http_.send(request, stop);
    if (failure) return unexpected(*std::move(failure));
    if (!answer && answer.error().kind == HttpErrorKind::cancelled) return unexpected(cancelledByUser());
    if (!answer) return unexpected(downloadFailed(answer.error().description));
    if (answer->status != 200)
        return unexpected(downloadFailed(fmt::format("The download server returned HTTP {}", answer->status)));
    if (size == 0) return unexpected(downloadFailed("No file was returned from the download server."));
    if (size < bounds_.smallest) return unexpected(unexpectedSize(std::to_string(size)));
    if (hash.hexDigest() != manifest.sha256)
        return unexpected(installFailed("Update Verification Failed",
                                        "The downloaded file did not match the published SHA-256 checksum."));

    if (stop.stop_requested()) return unexpected(cancelledByUser());
    const std::string name = fmt::format("Snipwren-{}{}", manifest.version, fileEnding(manifest.dmgURL));
    if (const auto published = file->publish(name); !published)
        return unexpected(downloadFailed(published.error().description));
    return joinedPath(downloadsFolder_, name);
}
} // namespace snipwren
