#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "base/Result.h"
#include "update/ReleaseManifest.h"

namespace snipwren {
class HttpClient;
class FileIO;

/// What to tell the user about a check or a download that failed.
struct UpdateFailure {
    std::string title;
    std::string text;
    /// The user stopped it; nothing needs telling.
    bool cancelled = false;
};

/// Fetches the release manifest and downloads a release. Blocking, stateless, thread safe.
class UpdateService {
public:
    static constexpr std::string_view host = "updates.snipwren.app";
    static constexpr std::string_view manifestURLString = "https://updates.snipwren.app/update.json";

    /// Sizes that a release may have, both ends included.
    struct SizeBounds {
        std::uint64_t smallest = 100'000;
        std::uint64_t largest = 150'000'000;
    };
    /// From 0 to 1; below 0 while the size is unknown. Called on the thread of the download.
    using Progress = std::function<void(double fraction)>;

    UpdateService(HttpClient& http, FileIO& files, std::string downloadsFolder, std::string currentVersion,
                  SizeBounds bounds)
        : http_(http),
          files_(files),
          downloadsFolder_(std::move(downloadsFolder)),
          currentVersion_(std::move(currentVersion)),
          bounds_(bounds) {}
    UpdateService(HttpClient& http, FileIO& files, std::string downloadsFolder, std::string currentVersion)
        : UpdateService(http, files, std::move(downloadsFolder), std::move(currentVersion), SizeBounds()) {}

    Result<ReleaseManifest, UpdateFailure> fetchManifest(std::stop_token stop) const;
    /// The path of the verified file in the downloads folder. Nothing is left there when it fails.
    Result<std::string, UpdateFailure> download(const ReleaseManifest& manifest, const Progress& progress,
                                                std::stop_token stop) const;

private:
    HttpClient& http_;
    FileIO& files_;
    const std::string downloadsFolder_;
    const std::string currentVersion_;
    const SizeBounds bounds_;
};
} // namespace snipwren
