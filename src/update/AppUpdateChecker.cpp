#include "update/AppUpdateChecker.h"

#include <fmt/format.h>

#include "base/Text.h"

namespace snipwren {
namespace {
constexpr const char* downloadSymbol = "arrow.down.circle";
constexpr const char* installSymbol = "arrow.triangle.2.circlepath";

std::string joinedLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
    return text;
}
} // namespace

AppUpdateChecker::Offer AppUpdateChecker::offer(const Manifest& manifest, const RunningBuild& running) {
    const bool newer = manifest.build > running.build
                       || (manifest.build == running.build && compareVersions(manifest.version, running.version) > 0);
    if (!newer) return Offer::upToDate;
    if (!running.systemVersion.empty() && compareVersions(manifest.minimumSystemVersion, running.systemVersion) > 0)
        return Offer::needsNewerSystem;
    return Offer::available;
}

bool AppUpdateChecker::isCheckDue(const UserDefaults& defaults, TimePoint now) {
    const std::optional<double> last = defaults.number(lastCheckKey);
    if (!last) return true;
    const double elapsed = secondsSince1970(now) - *last;
    return elapsed < 0 || elapsed >= checkInterval;
}

AppUpdateChecker::AppUpdateChecker(Dependencies dependencies, RunningBuild running)
    : d_(dependencies),
      running_(std::move(running)) {}

AppUpdateChecker::~AppUpdateChecker() {
    stopAll_.request_stop();
    stopInstall_.request_stop();
    if (usedWorker_) d_.worker.sync([] {}); // A queue that was never started would wait for ever.
}

void AppUpdateChecker::onMain(std::function<void()> task) {
    d_.mainQueue.async([alive = std::weak_ptr<bool>(alive_), task = std::move(task)] {
        if (alive.lock()) task();
    });
}

void AppUpdateChecker::alert(std::string title, std::string text) {
    d_.alerts.present({Alert::Style::informational, std::move(title), std::move(text), {"OK"}}, {});
}

void AppUpdateChecker::configureNotificationCategory() {
    d_.userNotifications.setCategory({updateCategoryId, {{restartActionId, "Restart to Update"}}});
}

void AppUpdateChecker::checkForUpdatesIfNeeded() {
    if (!d_.defaults.boolean(automaticChecksKey).value_or(true)) return;
    if (isCheckDue(d_.defaults, d_.clock.now())) checkForUpdates(false, true);
}

void AppUpdateChecker::checkForUpdatesManually() { checkForUpdates(true, false); }

void AppUpdateChecker::checkForUpdates(bool showWhenCurrent, bool recordAttempt) {
    showWhenCurrent_ = showWhenCurrent_ || showWhenCurrent;
    if (checking_) return;
    checking_ = usedWorker_ = true;
    d_.worker.async([this, recordAttempt, stop = stopAll_.get_token()] {
        auto fetched = d_.service.fetchManifest(stop);
        onMain([this, recordAttempt, fetched = std::move(fetched)] { finishCheck(fetched, recordAttempt); });
    });
}

void AppUpdateChecker::finishCheck(const Result<Manifest, UpdateFailure>& fetched, bool recordAttempt) {
    const bool show = showWhenCurrent_;
    checking_ = showWhenCurrent_ = false;
    if (!fetched) {
        if (fetched.error().cancelled) return;
        d_.log.line("❌ AppUpdateChecker: " + collapsedWhitespace(fetched.error().text));
        // A service that is away for days is reported by the automatic check once, not every time.
        if (show || !recordAttempt || !failureTold_) alert(fetched.error().title, fetched.error().text);
        failureTold_ = failureTold_ || recordAttempt;
        return;
    }
    failureTold_ = false;
    latestManifest_ = *fetched;
    if (const auto written = d_.defaults.set(lastCheckKey, secondsSince1970(d_.clock.now())); !written)
        d_.log.line("❌ AppUpdateChecker: " + written.error().description);

    const Offer found = offer(*latestManifest_, running_);
    if (found == Offer::available) {
        announce(*latestManifest_);
        if (show && running_.isPackageManaged)
            alert("Update Available", latestManifest_->version + " is available.\n\n" + packageManagerAdvice);
        else if (show)
            alert("Update Available",
                  latestManifest_->version
                      + " is available.\n\nInstall the checksum-verified update from the Snipwren menu.");
        return;
    }
    pendingUpdateVersion_.reset();
    pendingUpdateNotes_.reset();
    if (!show) return;
    if (found == Offer::needsNewerSystem)
        alert("Update Needs a Newer System",
              fmt::format("{} is available, but it needs system version {} and this is {}.", latestManifest_->version,
                          latestManifest_->minimumSystemVersion, running_.systemVersion));
    else
        alert("You're Up to Date", running_.version + " is the latest release.");
}

void AppUpdateChecker::announce(const Manifest& manifest) {
    pendingUpdateVersion_ = manifest.version;
    pendingUpdateNotes_ = joinedLines(manifest.releaseNotes);
    d_.notifications.post(updateAvailableNotification,
                          {{"version", manifest.version}, {"notes", *pendingUpdateNotes_}});

    NotificationRequest request;
    request.identifier = updateNotificationId;
    request.categoryIdentifier = updateCategoryId;
    request.title = "Snipwren — update available";
    request.body = manifest.version
                   + (running_.isPackageManaged ? " available — update it through your package manager"
                                                : " available — open the menu to install");
    d_.worker.async([this, request] {
        const NotificationSettings settings = d_.userNotifications.settings();
        if (settings.authorization != NotificationSettings::Authorization::authorized) return;
        if (const auto added = d_.userNotifications.add(request); !added)
            d_.log.line("❌ AppUpdateChecker: " + added.error().description);
    });
}

void AppUpdateChecker::restartToUpdate() { installPendingUpdate(); }

void AppUpdateChecker::cancelInstall() { stopInstall_.request_stop(); }

bool AppUpdateChecker::handleResponse(const NotificationResponse& response) {
    if (response.categoryIdentifier != updateCategoryId) return false;
    if (response.actionIdentifier == restartActionId) restartToUpdate();
    return true;
}

void AppUpdateChecker::installPendingUpdate() {
    if (installing_) return;
    if (running_.isPackageManaged) return alert("Update Through Your Package Manager", packageManagerAdvice);
    if (!latestManifest_)
        return alert("Update Not Ready", "Check for updates again to refresh the release information.");
    installing_ = true;
    stopInstall_ = std::stop_source();
    showProgress(-1);
    d_.worker.async([this, manifest = *latestManifest_, stop = stopInstall_.get_token()] {
        double shown = 0;
        const auto progress = [&](double fraction) {
            if (fraction < shown + 0.01 && fraction < 1) return; // The panel needs no more than each percent.
            shown = fraction;
            onMain([this, fraction] {
                if (installing_) showProgress(fraction);
            });
        };
        auto saved = d_.service.download(manifest, progress, stop);
        const bool opened = saved && d_.workspace.open(*saved); // Here, because starting a program takes its time.
        onMain([this, version = manifest.version, saved = std::move(saved), opened] {
            finishInstall(saved, opened, version);
        });
    });
}

void AppUpdateChecker::showProgress(double fraction) {
    d_.headsUp.show({"Downloading update…", {}, downloadSymbol, fraction});
}

void AppUpdateChecker::finishInstall(const Result<std::string, UpdateFailure>& saved, bool opened,
                                     const std::string& version) {
    installing_ = false;
    if (!saved) {
        if (saved.error().cancelled) {
            d_.headsUp.show({"Update cancelled", {}, downloadSymbol});
            return;
        }
        d_.log.line("❌ AppUpdateChecker: " + collapsedWhitespace(saved.error().text));
        return alert(saved.error().title, saved.error().text);
    }
    d_.log.line("✅ AppUpdateChecker: Verified update saved at: " + *saved);
    if (opened)
        d_.headsUp.show({"Install from the DMG, then reopen Snipwren", {}, installSymbol});
    else
        alert("Could Not Open Update",
              "The verified DMG was saved to Downloads. Open it manually to install " + version);
}
} // namespace snipwren
