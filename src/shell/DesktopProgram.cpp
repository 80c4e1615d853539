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
    for (const QString& place : {here + "/", here + "/../libexec/snipwren/", here + "/../platform/linux/"})
        if (QFileInfo(place + name).isExecutable()) return (place + name).toStdString();
    return {};
}
} // namespace

DesktopProgram::DesktopProgram(Environment& environment, QtMainQueue& mainQueue)
    : environment_(environment),
      mainQueue_(mainQueue),
      draft_(environment_.files(), joinedPath(environment_.paths().applicationSupport, "draft"), draftQueue_),
      appearance_(Appearance::preferredScheme()),
      panel_(appearance_),
      notices_({panel_, mainQueue_, environment_.notifications(),
                [this](const std::string& path) { openInBackground(path); },
                [this](const std::string& section, const std::string& field) { openSettings(section, field); }}),
      overlay_(appearance_),
      workspace_(secureInput_, opener_,
                 {{},
                  [this](const std::string& section, const std::string& field) { return openSettings(section, field); },
                  [this] { return overlay_.hasKeyboard(); }}),
      fields_(activeWindow_, workspace_, environment_.log()),
      keyboard_(ownKeys_),
      taps_(ownKeys_, tapOptions()),
      services_(environment_),
      application_(std::make_unique<Application>(environment_, host())),
      updates_(std::make_unique<Updates>(environment_, application_->host(), application_->http())),
      menu_(menuActions()),
      item_(menu_.menu()) {
    overlay_.setActions(overlayActions());
    fields_.setSecureChanged([this](bool on) { secureInput_.set(SecureInputState::Sign::passwordField, on); });
}

DesktopProgram::~DesktopProgram() {
    application_->router().setStateObserver({});
    application_->scheduling().stopCountdown();
    updates_.reset();
    application_.reset();
    // What was still open is in the recovery log by now.
    draft_.discard();
    fields_.stop();
}

Host DesktopProgram::host() {
    return {.taps = taps_,
            .permissions = permissions_,
            .workspace = workspace_,
            .fields = fields_,
            .keyboard = keyboard_,
            .screens = screens_,
            .overlay = overlay_,
            .ownWindows = overlay_,
            .pasteboard = pasteboard_,
            .alerts = alerts_,
            .headsUp = notices_,
            .notificationCenter = services_.notificationCenter(),
            .eventStore = services_.eventStore(),
            .landing = notices_,
            .mainQueue = mainQueue_};
}

X11KeyboardTap::Options DesktopProgram::tapOptions() const {
    X11KeyboardTap::Options options;
    options.guardProgram = besideUs(guardProgram);
    options.grabEverySlash = environment_.defaults().boolean("grabEverySlash").value_or(false);
    return options;
}

CaptureOverlayWindow::Actions DesktopProgram::overlayActions() {
    CaptureRouterController& router = application_->router();
    router.setStateObserver([this](const CaptureState& state) {
        overlay_.update(state);
        holdDraft(state);
    });
    return {.becameKey =
                [this, &router] {
                    router.overlayDidBecomeKey();
                    if (const auto text = std::exchange(retryText_, std::nullopt))
                        router.handleMessageInputChange(*text);
                },
            .textChanged = [&router](const std::string& text) { router.handleMessageInputChange(text); },
            .commit = [&router] { router.commitCapture(); },
            .cancel = [&router] { router.cancelCapture(); },
            .moveSelection = [&router](int rows) { router.moveSelection(rows); },
            .deleteOnEmptyInput = [&router] { return router.handleDeleteOnEmptyInput(); },
            .acceptOfferedText = [&router] { router.acceptOfferedText(); },
            .lateKey = [&router](const KeptKey& key) { router.handleOverlayKey(key); },
            .returnedKeyboard = [&router] { router.overlayDidReturnKeyboard(); }};
}

void DesktopProgram::holdDraft(const CaptureState& state) {
    if (!state.currentTarget) {
        mainQueue_.asyncAfter(draftPatience, [this] { discardDraftWhenSent(); });
    } else if (!state.isPickerOpen() && !state.messageInput.empty()) {
        draft_.hold(state.currentTarget->commandName(), state.messageInput);
    }
}

void DesktopProgram::discardDraftWhenSent() {
    // A capture that was opened meanwhile has a draft of its own.
    if (application_->router().state().currentTarget) return;
    if (application_->router().runningSends() == 0) return draft_.discard();
    mainQueue_.asyncAfter(draftPatience, [this] { discardDraftWhenSent(); });
}

void DesktopProgram::start(bool paused) {
    openQueue_.start();
    draftQueue_.start();
    application_->open();
    draft_.recover([this](const std::string& text, const std::string& command) {
        return application_->recoveryLog().saveFallback(text, command, "Snipwren ended before Return was pressed.");
    });
    workspace_.start();
    fields_.start();
    // Only a Space behind one of these is ever held back.
    std::vector<std::string> words;
    for (const auto& target : application_->router().registeredTargets()) words.push_back(target->commandName());
    taps_.setCommandWords(std::move(words));
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

void DesktopProgram::finish() {
    const auto end = std::chrono::steady_clock::now() + quitPatience;
    while (!application_->isIdle() && std::chrono::steady_clock::now() < end)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::ExcludeUserInputEvents, 50);
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
                    CaptureTarget* const target = application_->router().target(command);
                    if (target) application_->router().enterCaptureModeUI(*target);
                    return target != nullptr;
                },
            .status = [this] { return status(); }};
}

std::string DesktopProgram::status() {
    return nlohmann::json{{"pid", ::getpid()},
                          {"version", SNIPWREN_VERSION},
                          {"paused", isPaused_},
                          {"listening", application_->tap().isRunning()},
                          {"stoppedForGood", application_->tap().isTapPermanentlyDisabled()},
                          {"accessibility", fields_.isConnected()},
                          {"statusItem", item_.isShown()}}
        .dump();
}

void DesktopProgram::openInBackground(const std::string& path) {
    openQueue_.async([this, path] {
        if (opener_.open(path)) return;
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
