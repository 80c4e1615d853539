#include "update/AppUpdateChecker.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/ManualQueue.h"
#include "platform/HttpClient.h"
#include "support/FakeDesktop.h"
#include "support/FakeUserNotificationCenter.h"
#include "support/RecordingHeadsUpPanel.h"
#include "support/TemporaryFolder.h"
#include "update/Sha256.h"

namespace snipwren {
namespace {
const TimePoint start = fromSecondsSince1970(1'750'000'000);

/// Answers the manifest and the file; fails when told to.
class FakeUpdateServer final : public HttpClient {
public:
    nlohmann::json manifest;
    std::string file = std::string(100'000, 'f');
    bool offline = false;
    int manifestRequests = 0;

    FakeUpdateServer() {
        Sha256 hash;
        hash.update(file);
        manifest = {{"version", "1.4.0"},
                    {"build", 140},
                    {"minimumSystemVersion", "12.0"},
                    {"dmgURL", "https://updates.snipwren.app/Snipwren.dmg"},
                    {"sha256", hash.hexDigest()},
                    {"releaseNotes", {"One", "Two"}}};
    }
    Result<HttpResponse, HttpError> send(const HttpRequest& request, std::stop_token) override {
        if (request.url == UpdateService::manifestURLString) ++manifestRequests;
        if (offline) return unexpected(HttpError{HttpErrorKind::transport, "No route to host."});
        if (!request.bodySink) return HttpResponse{200, {}, manifest.dump(), request.url};
        request.bodySink(file, file.size());
        return HttpResponse{200, {}, {}, request.url};
    }
};

class AppUpdateCheckerTest : public testing::Test {
protected:
    TemporaryFolder folder;
    PosixFileIO files;
    ManualClock clock{start};
    ManualQueue mainQueue{"main", clock}, worker{"worker", clock};
    NotificationCenter notifications{mainQueue};
    UserDefaults defaults{files, folder.file("defaults.json")};
    FakeUserNotificationCenter userNotifications;
    FakeWorkspace workspace;
    FakeAlertPresenter alerts;
    RecordingHeadsUpPanel headsUp;
    MemoryLog log;
    FakeUpdateServer http;
    std::string downloads = folder.file("Downloads");
    UpdateService service{http, files, downloads, "1.3.0"};
    RunningBuild running{"1.3.0", 130, "13.1", false};
    std::optional<AppUpdateChecker> checker_;

    AppUpdateChecker& checker() {
        if (!checker_)
            checker_.emplace(AppUpdateChecker::Dependencies{service, userNotifications, notifications, workspace,
                                                            alerts, headsUp, defaults, clock, log, mainQueue, worker},
                             running);
        return *checker_;
    }
    void settle() {
        while (worker.runReady() + mainQueue.runReady() > 0) {}
    }
    void checkManually() {
        checker().checkForUpdatesManually();
        settle();
    }
    void checkIfNeeded() {
        checker().checkForUpdatesIfNeeded();
        settle();
    }
    std::string lastAlert() const {
        return alerts.alerts.empty() ? "" : alerts.alerts.back().title + ": " + alerts.alerts.back().text;
    }
};

TEST_F(AppUpdateCheckerTest, TellsOfANewerReleaseInEveryPlace) {
    std::string posted;
    const auto subscription = notifications.observe(AppUpdateChecker::updateAvailableNotification,
                                                    [&](const UserInfo& info) { posted = text(info, "version"); });
    checker().configureNotificationCategory();
    ASSERT_EQ(userNotifications.categories.size(), 1u);
    EXPECT_EQ(userNotifications.categories[0].identifier, "SNIPWRN_UPDATE");
    EXPECT_EQ(userNotifications.categories[0].actions[0].identifier, "RESTART_TO_UPDATE");
    EXPECT_EQ(userNotifications.categories[0].actions[0].title, "Restart to Update");

    checkManually();
    EXPECT_EQ(lastAlert(),
              "Update Available: 1.4.0 is available.\n\nInstall the checksum-verified update from the Snipwren menu.");
    EXPECT_EQ(checker().pendingUpdateVersion(), "1.4.0");
    EXPECT_EQ(checker().pendingUpdateNotes(), "One\nTwo");
    EXPECT_EQ(posted, "1.4.0");
    ASSERT_EQ(userNotifications.added.size(), 1u);
    EXPECT_EQ(userNotifications.added[0].identifier, "SNIPWRN_APP_UPDATE");
    EXPECT_EQ(userNotifications.added[0].categoryIdentifier, "SNIPWRN_UPDATE");
    EXPECT_EQ(userNotifications.added[0].title, "Snipwren — update available");
    EXPECT_EQ(userNotifications.added[0].body, "1.4.0 available — open the menu to install");
    EXPECT_EQ(defaults.number("lastSuccessfulUpdateCheckTimestamp"), 1'750'000'000.0);
}

TEST_F(AppUpdateCheckerTest, ChecksByItselfOncePerDay) {
    http.manifest["build"] = 130;
    http.manifest["version"] = "1.3.0";
    const std::pair<double, bool> rows[] = {{86'399, false}, {86'400, true}, {-10, true}, {0, false}};
    for (const auto& [ago, runs] : rows) {
        ASSERT_TRUE(defaults.set(AppUpdateChecker::lastCheckKey, secondsSince1970(clock.now()) - ago));
        http.manifestRequests = 0;
        checkIfNeeded();
        EXPECT_EQ(http.manifestRequests, runs ? 1 : 0) << ago << " s after the last check";
    }
    EXPECT_EQ(lastAlert(), "") << "a current program is no news";
    ASSERT_TRUE(defaults.remove(AppUpdateChecker::lastCheckKey));
    ASSERT_TRUE(defaults.set(AppUpdateChecker::automaticChecksKey, false));
    http.manifestRequests = 0;
    checkIfNeeded();
    EXPECT_EQ(http.manifestRequests, 0);
}

TEST_F(AppUpdateCheckerTest, ComparesBuildThenVersionThenSystem) {
    using enum AppUpdateChecker::Offer;
    const std::tuple<std::int64_t, const char*, const char*, AppUpdateChecker::Offer> rows[] = {
        {131, "1.0", "12.0", available},      {130, "1.3.1", "12.0", available}, {130, "1.3.0", "12.0", upToDate},
        {129, "9.0", "12.0", upToDate},       {131, "1.4", "13.1", available},   {131, "1.4", "13.2", needsNewerSystem},
        {130, "1.10.0", "13.1.0", available}, {129, "1.0", "99", upToDate}};
    for (const auto& [build, version, minimum, want] : rows)
        EXPECT_EQ(AppUpdateChecker::offer({version, build, minimum, {}, {}, {}}, running), want)
            << build << " " << version << " " << minimum;

    http.manifest["build"] = 120;
    checkManually();
    EXPECT_EQ(lastAlert(), "You're Up to Date: 1.3.0 is the latest release.");
    http.manifest["build"] = 140;
    http.manifest["minimumSystemVersion"] = "14.0";
    checkManually();
    EXPECT_EQ(lastAlert(), "Update Needs a Newer System: 1.4.0 is available, but it needs system version 14.0 and "
                           "this is 13.1.");
    EXPECT_FALSE(checker().hasPendingUpdate());
    EXPECT_TRUE(userNotifications.added.empty());
}

TEST_F(AppUpdateCheckerTest, AFailedCheckKeepsThePendingUpdateAndIsToldOnceByItself) {
    checkManually();
    alerts.alerts.clear();
    clock.advance(std::chrono::hours(25));
    http.offline = true;
    checkIfNeeded();
    EXPECT_EQ(lastAlert(), "Update Check Failed: Could not reach the update service.\n\nNo route to host.");
    checkIfNeeded();
    EXPECT_EQ(alerts.alerts.size(), 1u);
    checkManually();
    EXPECT_EQ(alerts.alerts.size(), 2u);
    EXPECT_EQ(checker().pendingUpdateVersion(), "1.4.0");
    EXPECT_EQ(defaults.number(AppUpdateChecker::lastCheckKey), 1'750'000'000.0);
}

TEST_F(AppUpdateCheckerTest, InstallsFromTheNotification) {
    checker().restartToUpdate();
    EXPECT_EQ(lastAlert(), "Update Not Ready: Check for updates again to refresh the release information.");
    checkManually();
    EXPECT_FALSE(checker().handleResponse({"other", "SNIPWRN_TIMER", "RESTART_TO_UPDATE"}));
    EXPECT_TRUE(checker().handleResponse({"SNIPWRN_APP_UPDATE", "SNIPWRN_UPDATE", "RESTART_TO_UPDATE"}));
    EXPECT_EQ(headsUp.notices.back().title, "Downloading update…");
    EXPECT_EQ(headsUp.notices.back().symbol, "arrow.down.circle");
    checker().restartToUpdate(); // A second click while it runs starts nothing.
    settle();
    EXPECT_EQ(workspace.opened(), std::vector{downloads + "/Snipwren-1.4.0.dmg"});
    EXPECT_EQ(headsUp.notices.back().title, "Install from the DMG, then reopen Snipwren");

    workspace.opens = false;
    checker().restartToUpdate();
    settle();
    EXPECT_EQ(lastAlert(), "Could Not Open Update: The verified DMG was saved to Downloads. Open it manually to "
                           "install 1.4.0");
    http.file += "tampered";
    checker().restartToUpdate();
    settle();
    EXPECT_EQ(alerts.alerts.back().title, "Update Verification Failed");
    EXPECT_EQ(checker().pendingUpdateVersion(), "1.4.0");
}

TEST_F(AppUpdateCheckerTest, LeavesAPackagedProgramToItsPackageManager) {
    running.isPackageManaged = true;
    checkManually();
    checker().restartToUpdate();
    settle();
    EXPECT_EQ(alerts.alerts.back().title, "Update Through Your Package Manager");
    EXPECT_TRUE(workspace.opened().empty());
    EXPECT_FALSE(files.exists(downloads));
}

TEST_F(AppUpdateCheckerTest, EndsCleanlyInTheMiddleOfACheck) {
    checker().checkForUpdatesManually();
    worker.runReady();
    checker_.reset();
    settle();
    EXPECT_EQ(lastAlert(), "");
}
} // namespace
} // namespace snipwren
