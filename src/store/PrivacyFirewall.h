#pragma once

#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/Clock.h"
#include "base/Regex.h"

namespace snipwren {
class DatabaseManager;
class SerialQueue;

/// Says whether text typed in an application may be learned, remembered or sent on: not from password fields, not from
/// excluded applications, not when it carries credentials. Never alters or logs text. Thread safe; asked on the key tap's
/// thread, where no database is read: the excluded applications stand in a cache that is refreshed in the background.
/// The refresh queue must be drained before the firewall dies.
class PrivacyFirewall {
public:
    static constexpr std::chrono::seconds cacheTtl{10};

    struct Dependencies {
        DatabaseManager& database;
        const Clock& clock;
        /// Refreshes run here, at most one at a time.
        SerialQueue& refreshQueue;
    };
    explicit PrivacyFirewall(const Dependencies& dependencies);

    /// Fills the cache before it returns; called once the database is open and before the tap is armed.
    void primeExcludedApps();
    bool isAppExcluded(std::string_view bundleId);
    /// On Linux one application goes by several names; any of them counts.
    bool isAppExcluded(std::string_view bundleId, std::span<const std::string> otherNames);
    /// `fieldType` describes the field's role. A text that takes too long to examine is refused.
    bool isSafeToProcess(std::string_view text, std::string_view appBundleId,
                         const std::optional<std::string>& fieldType);
    /// The part of isSafeToProcess that looks at the text alone.
    bool carriesCredentials(std::string_view text) const;

private:
    /// Compares ASCII letters without their case, so that a look-up builds no text of its own.
    struct Folded {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const;
        bool operator()(std::string_view one, std::string_view other) const;
    };
    using Names = std::unordered_set<std::string, Folded, Folded>;

    void scheduleRefreshIfNeeded();
    void refreshExcludedAppsCache();
    /// None when the database did not answer.
    std::optional<Names> excludedNames();
    bool isCached(std::string_view name);
    bool hasHighEntropyToken(std::u16string_view text) const;
    bool hasCardNumber(std::u16string_view text) const;

    DatabaseManager& database_;
    const Clock& clock_;
    SerialQueue& refreshQueue_;
    struct Credential {
        /// Text without it cannot match.
        std::string_view hint;
        Regex pattern;
    };
    std::vector<Credential> credentials_;
    std::optional<Regex> card_;
    std::optional<Regex> token_;

    std::mutex mutex_; // Guards what follows; held for a look-up or a swap only.
    Names excludedAppsCache_;
    std::optional<SteadyPoint> lastCacheUpdate_; // Monotonic: setting the clock back must not freeze the cache.
    bool isRefreshing_ = false;
};
} // namespace snipwren
