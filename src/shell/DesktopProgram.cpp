#include "shell/DesktopProgram.h"

#include <unistd.h>

#include <QApplication>
#include <QFileInfo>
#include <QTimer>
#include <nlohmann/json.hpp>

namespace snipwren {
namespace {
constexpr const char* guardProgram = "snipwren-tapguard";

/// Beside this program in a build, in the private folder of an installation.
std::string besideUs(const char* name) {
    const QString here = QCoreApplication::applicationDirPath();
    for (const QString& place : {here + "/", here + "/../libexec/snipwren/", here + "/../hosts/linux/"})
        if (QFileInfo(place + name).isExecutable()) return (place + name).toStdString();
    return {};
}
} // namespace

DesktopProgram::DesktopProgram(Environment& environment, QtMainQueue& mainQueue)
    : environment_(environment),
      mainQueue_(mainQueue),
      appearance_(Appearance::preferredScheme()),
      panel_(appearance_),
      notices_({panel_, mainQueue_, environment_.notifications(),
                [this](const std::string& path) { openInBackground(path); },
                [this](const std::string& section, const std::string& field) { openSettings(section, field); },
                [this](const std::string& captureId) {
                    undo(captureId, [this](bool done, const std::string& sentence) {
                        done ? notices_.show({sentence, "", "", -1}) : notices_.announceFault(sentence);
                    });
                }}),
      overlay_(appearance_),
      host_(environment_, hostOptions()),
      application_(std::make_unique<Application>(environment_, host())),
      updates_(std::make_unique<Updates>(environment_, application_->host(), application_->http())),
      menu_(menuActions()),
      item_(menu_.menu()) {
    overlay_.setListener(&application_->router());
    application_->router().setStateObserver([this](const CaptureState& state) { overlay_.update(state); });
}

DesktopProgram::~DesktopProgram() {
    application_->router().setStateObserver({});
    application_->scheduling().stopCountdown();
    updates_.reset();
    application_.reset();
    overlay_.setListener(nullptr);
    host_.stop();
}

LinuxHost::Options DesktopProgram::hostOptions() {
    return {.grabEverySlash = environment_.defaults().boolean("grabEverySlash").value_or(false),
            .guardProgram = besideUs(guardProgram),
            .openSettings = [this](const std::string& section,
                                   const std::string& field) { return openSettings(section, field); },
            .isOwnWindowKey = [this] { return overlay_.hasKeyboard(); }};
}

Host DesktopProgram::host() {
    return host_.host({.overlay = overlay_,
                       .ownWindows = overlay_,
                       .pasteboard = pasteboard_,
                       .alerts = alerts_,
                       .headsUp = notices_,
                       .landing = notices_,
                       .mainQueue = mainQueue_});
}

void DesktopProgram::start(bool paused) {
    openQueue_.start();
    application_->open();
    application_->recover();
    host_.start([this] { application_->tap().clearContext(std::nullopt, true); });
    isPaused_ = paused;
    application_->startTap(!paused);
    menu_.rebuild(); // Panels read it without opening it.
    refreshLook();
    item_.start();
    application_->scheduling().delegate().onAction(
        AppUpdateChecker::updateCategoryId, AppUpdateChecker::restartActionId,
        [this](const NotificationResponse& response) { updates_->checker().handleResponse(response); });
    application_->scheduling().start();
    application_->startContextServer();
    updates_->start();
    application_->scheduling().startCountdown([this](const auto&) { countdownChanged(); });
    environment_.log().line("✅ DesktopProgram: Started");
}

void DesktopProgram::whenIdle(std::function<void()> then) {
    if (application_->isIdle() && !application_->router().isCaptureModeActiveThreadSafe()) return then();
    QTimer::singleShot(500, &overlay_, [this, then = std::move(then)]() mutable { whenIdle(std::move(then)); });
}

SingleInstance::Requests DesktopProgram::requests() {
    return {.showMenu = [this] { menu_.popup(); },
            .quit = [] { QCoreApplication::quit(); },
            .capture =
                [this](const std::string& command) {
                    CaptureTarget* const target = application_->targets().find(command);
                    if (target) application_->router().enterCaptureModeUI(*target);
                    return target != nullptr;
                },
            .undo = [this](std::function<void(bool, const std::string&)> done) { undo({}, std::move(done)); },
            .status = [this] { return status(); }};
}

void DesktopProgram::undo(const std::string& captureId, std::function<void(bool, const std::string&)> done) {
    const auto tell = [this, done = std::move(done)](const Result<std::string, CaptureError>& outcome) {
        mainQueue_.async(
            [done, outcome] { done(outcome.has_value(), outcome ? *outcome : outcome.error().description); });
    };
    Delivery& delivery = application_->delivery();
    captureId.empty() ? delivery.undoLast(tell) : delivery.undo(captureId, tell);
}

std::string DesktopProgram::backlogSentence() const {
    std::string sentence;
    for (const Delivery::Backlog& lane : application_->delivery().backlog())
        sentence += (sentence.empty() ? "//" : ", //") + lane.target + ": " + std::to_string(lane.waiting)
                    + (lane.waiting == 1 ? " capture waits" : " captures wait");
    return sentence;
}

std::string DesktopProgram::status() {
    auto waiting = nlohmann::json::array();
    for (const Delivery::Backlog& lane : application_->delivery().backlog())
        waiting.push_back({{"target", lane.target}, {"captures", lane.waiting}, {"seconds", lane.oldest.count()}});
    return nlohmann::json{{"pid", ::getpid()},
                          {"version", SNIPWREN_VERSION},
                          {"paused", isPaused_},
                          {"listening", application_->tap().isRunning()},
                          {"stoppedForGood", application_->tap().isTapPermanentlyDisabled()},
                          {"accessibility", host_.isAccessibilityConnected()},
                          {"waiting", waiting},
                          {"statusItem", item_.isShown()}}
        .dump();
}

void DesktopProgram::openInBackground(const std::string& path) {
    openQueue_.async([this, path] {
        if (host_.open(path)) return;
        notices_.announceFault("Could not open " + path);
    });
}

bool DesktopProgram::openSettings(const std::string& section, const std::string&) {
    // The recovery log is a file that says more than any screen about it could.
    return section == "Error Logs" ? openRecoveryLog() : openSettingsFile();
}

bool DesktopProgram::openSettingsFile() {
    const std::string& path = environment_.paths().defaultsFile;
    // An editor needs something to open; the first value that is set makes the file.
    if (!environment_.files().exists(path)) {
        environment_.defaults().set("grabEverySlash", false);
    }
    openInBackground(path);
    return true;
}

bool DesktopProgram::openRecoveryLog() {
    openInBackground(application_->recoveryLog().logFilePath());
    return true;
}

void DesktopProgram::setPaused(bool paused) {
    if (paused == isPaused_) return;
    isPaused_ = paused;
    if (paused)
        application_->tap().stop();
    else
        application_->tap().start();
    refreshLook();
}

void DesktopProgram::refreshLook() {
    StatusItem::Look look;
    look.isPaused = isPaused_;
    look.hasProblem = application_->tap().isTapPermanentlyDisabled();
    look.toolTip = isPaused_ ? "Snipwren: capturing is paused" : "Snipwren";
    if (const auto& countdown = application_->scheduling().countdown().current()) {
        look.badge = QString::fromStdString(countdown->badge);
        look.toolTip = QString::fromStdString(countdown->description);
    }
    item_.setLook(look);
}

void DesktopProgram::countdownChanged() {
    refreshLook();
    // Every second has a new text, but a menu that changed under the pointer every second would be no use.
    const auto& countdown = application_->scheduling().countdown().current();
    const std::string counted = countdown ? countdown->capture.id : "";
    if (std::exchange(countedDown_, counted) != counted) menu_.rebuild();
}
} // namespace snipwren
