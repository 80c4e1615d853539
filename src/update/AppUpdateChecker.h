#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "base/Clock.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "platform/AlertPresenter.h"
#include "platform/HeadsUpPanel.h"
#include "platform/UserNotificationCenter.h"
#include "platform/Workspace.h"
#include "update/UpdateService.h"

namespace snipwren {
/// The running program and the system it runs on.
struct RunningBuild {
    std::string version;
    std::int64_t build = 0;
    /// Empty when it is not known; then no release is too new for it.
    std::string systemVersion;
    /// Installed by the system's package manager, which alone may replace it.
    bool isPackageManaged = false;
};

/// Asks once a day, and whenever the user wants, whether a newer release exists, tells the user, and installs it on
/// request. Main queue; the network and the disk work on a queue of their own.
class AppUpdateChecker {
public:
    using Manifest = ReleaseManifest;
    static constexpr const char* lastCheckKey = "lastSuccessfulUpdateCheckTimestamp";
    static constexpr const char* automaticChecksKey = "automaticUpdateChecks";
    static constexpr const char* updateNotificationId = "SNIPWRN_APP_UPDATE";
    static constexpr const char* updateCategoryId = "SNIPWRN_UPDATE";
    static constexpr const char* restartActionId = "RESTART_TO_UPDATE";
    static constexpr const char* updateAvailableNotification = "AppUpdateAvailable";
    static constexpr const char* packageManagerAdvice =
        "This copy of Snipwren was installed by your package manager. Use the package manager to update it.";
    static constexpr double checkInterval = 86'400;

    struct Dependencies {
        const UpdateService& service;
        UserNotificationCenter& userNotifications;
        NotificationCenter& notifications;
        Workspace& workspace;
        AlertPresenter& alerts;
        HeadsUpPanel& headsUp;
        UserDefaults& defaults;
        const Clock& clock;
        Log& log;
        SerialQueue& mainQueue;
        /// Where requests and the download block.
        SerialQueue& worker;
    };

    /// Whether a manifest is to be offered to a running program.
    enum class Offer { upToDate, available, needsNewerSystem };
    static Offer offer(const Manifest& manifest, const RunningBuild& running);
    /// True when the daily check is due. A time stamp from the future, left by a wrong clock, does not hold it up.
    static bool isCheckDue(const UserDefaults& defaults, TimePoint now);

    AppUpdateChecker(Dependencies dependencies, RunningBuild running);
    /// Cancels what runs and waits for it.
    ~AppUpdateChecker();

    void configureNotificationCategory();
    void checkForUpdatesIfNeeded();
    void checkForUpdatesManually();
    void restartToUpdate();
    void cancelInstall();
    /// True when the response was to the update notification.
    bool handleResponse(const NotificationResponse& response);

    const std::optional<Manifest>& latestManifest() const { return latestManifest_; }
    const std::optional<std::string>& pendingUpdateVersion() const { return pendingUpdateVersion_; }
    /// The release notes, one a line.
    const std::optional<std::string>& pendingUpdateNotes() const { return pendingUpdateNotes_; }
    bool hasPendingUpdate() const { return pendingUpdateVersion_.has_value(); }
    const std::string& currentVersion() const { return running_.version; }
    std::int64_t currentBuild() const { return running_.build; }
    bool isInstalling() const { return installing_; }

private:
    void checkForUpdates(bool showWhenCurrent, bool recordAttempt);
    void finishCheck(const Result<Manifest, UpdateFailure>& fetched, bool recordAttempt);
    void announce(const Manifest& manifest);
    void installPendingUpdate();
    void finishInstall(const Result<std::string, UpdateFailure>& saved, bool opened, const std::string& version);
    void showProgress(double fraction);
    void alert(std::string title, std::string text);
    /// Runs the task on the main queue unless this object is gone by then.
    void onMain(std::function<void()> task);

    const Dependencies d_;
    const RunningBuild running_;
    std::optional<Manifest> latestManifest_;
    std::optional<std::string> pendingUpdateVersion_, pendingUpdateNotes_;
    bool checking_ = false;
    bool usedWorker_ = false;
    /// A manual check arrived while one was running; its answer is shown.
    bool showWhenCurrent_ = false;
    bool failureTold_ = false;
    bool installing_ = false;
    std::stop_source stopAll_, stopInstall_;
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
} // namespace snipwren
