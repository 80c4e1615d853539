#include "app/Application.h"

#include <thread>

#include "parsing/CapturePreview.h"
#include "targets/AlarmTarget.h"
#include "targets/CalcTarget.h"
#include "targets/CalendarTarget.h"
#include "targets/ClipboardTarget.h"
#include "targets/LocalNoteTarget.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"
#include "targets/RemindersTarget.h"
#include "targets/SlackTarget.h"
#include "targets/TimerTarget.h"

namespace snipwren {
/// What the rules exclude, asked on every key.
class Application::Exclusions final : public AppExclusions {
public:
    explicit Exclusions(PrivacyFirewall& firewall) : firewall_(firewall) {}
    bool isExcluded(const RunningApplication& application) override {
        return firewall_.isAppExcluded(application.bundleId, application.identities);
    }

private:
    PrivacyFirewall& firewall_;
};

Application::Application(Environment& environment, const Host& host)
    : environment_(environment),
      host_(host),
      databaseQueue_(DatabaseManager::queueLabel),
      transitionQueue_("com.snipwren.capture-transition"),
      tapQueue_("com.snipwren.app.tapQueue"),
      sends_("snipwren-send", 4),
      database_({environment.files(), environment.paths(), environment.clock(), environment.defaults(), databaseQueue_,
                 environment.log()}),
      recoveryLog_(environment.files(), environment.paths(), environment.clock(), environment.notifications()),
      history_({database_, environment.clock(), environment.notifications(), environment.log()}),
      recorder_(recoveryLog_, history_),
      firewall_({database_, environment.clock(), refreshQueue_}),
      refreshQueue_("com.snipwren.app.exclusions"),
      secretsQueue_(KeychainHelper::queueLabel),
      secrets_({environment.files(), environment.paths(), secretsQueue_, environment.log(), legacyKeychain_}),
      scheduling_(environment, host_.notificationCenter, host_.headsUp),
      knowledgeQueue_(SecondBrainIndexer::queueLabel),
      knowledgeRebuildQueue_(SecondBrainIndexer::rebuildQueueLabel),
      secondBrain_({environment.files(), environment.paths(), environment.defaults(), environment.clock(),
                    knowledgeQueue_, knowledgeRebuildQueue_, host_.mainQueue, environment.log()}),
      knowledge_(secondBrain_, environment.random()),
      assistant_(
          {http_, secrets_, environment.defaults(), firewall_, host_.fields, host_.workspace, environment.clock()}),
      completion_(assistant_.engine()),
      context_({.database = database_,
                .secrets = secrets_,
                .firewall = firewall_,
                .defaults = environment.defaults(),
                .clock = environment.clock(),
                .random = environment.random(),
                .notifications = environment.notifications(),
                .log = environment.log(),
                .field = &host_.fields,
                .workspace = &host_.workspace,
                .assistant = &completion_}),
      exclusions_(std::make_unique<Exclusions>(firewall_)),
      router_(std::make_unique<CaptureRouterController>(routerDependencies(), makeTargets())),
      tap_(std::make_unique<EventTapManager>(tapDependencies())),
      aiPrompt_(std::make_unique<AIPrompt>(environment, host_, assistant_.engine(), *tap_)) {}

Application::~Application() {
    host_.fields.setFocusObserver({});
    aiPrompt_.reset();
    tap_->stop();
    router_->keepUnsentText();
    // Sends use the main queue and the router, so they end before either goes.
    sends_.finish();
}

void Application::open() {
    databaseQueue_.start();
    secretsQueue_.start();
    knowledgeQueue_.start();
    knowledgeRebuildQueue_.start();
    transitionQueue_.start();
    tapQueue_.start();
    refreshQueue_.start();
    assistant_.start();
    database_.open();
    // Before the first key is looked at: password managers are protected from the start.
    firewall_.primeExcludedApps();
    history_.open();
    recoveryLog_.prepare();
}

void Application::startTap(bool listening) {
    host_.fields.setFocusObserver([this](const std::string& bundleId, const FieldDescription& field) {
        router_->focusChanged(bundleId, field);
        // A field that the user came back to has its beginning of a trigger again; a tap that arms itself by what
        // was typed must know.
        tap_->noteTypedText(router_->passiveBuffer().text());
    });
    aiPrompt_->start();
    if (listening) tap_->start();
}

bool Application::isIdle() const { return !router_->isCaptureTransitionThreadSafe() && router_->runningSends() == 0; }

CaptureRouterController::Targets Application::makeTargets() {
    Environment& e = environment_;
    CaptureRouterController::Targets targets;
    targets.push_back(std::make_unique<LocalNoteTarget>(
        LocalNoteTarget::Dependencies{e.files(), e.paths(), e.clock(), e.calendar(), host_.landing, e.log()}));
    targets.push_back(std::make_unique<RemindersTarget>(RemindersTarget::Dependencies{
        host_.eventStore, scheduling_.scheduler(), e.calendar(), e.clock(), host_.landing, e.log()}));
    targets.push_back(std::make_unique<ClipboardTarget>(host_.pasteboard, host_.mainQueue, host_.landing, e.log()));
    targets.push_back(std::make_unique<TimerTarget>(
        TimerTarget::Dependencies{scheduling_.scheduler(), e.calendar(), host_.landing, e.log()}));
    targets.push_back(std::make_unique<CalcTarget>(
        CalcTarget::Dependencies{host_.pasteboard, host_.mainQueue, host_.landing, e.log()}));
    targets.push_back(std::make_unique<AlarmTarget>(
        AlarmTarget::Dependencies{scheduling_.scheduler(), e.calendar(), e.clock(), host_.landing, e.log()}));
    targets.push_back(std::make_unique<CalendarTarget>(
        CalendarTarget::Dependencies{host_.eventStore, e.calendar(), e.clock(), host_.landing, e.log()}));
    targets.push_back(std::make_unique<ObsidianTarget>(
        ObsidianTarget::Dependencies{e.files(), e.paths(), e.defaults(), e.clock(), e.calendar(), e.log()}));
    targets.push_back(std::make_unique<SlackTarget>(SlackTarget::Dependencies{http_, secrets_, e.clock(), e.log()}));
    targets.push_back(std::make_unique<LogseqTarget>(
        LogseqTarget::Dependencies{e.files(), e.paths(), e.defaults(), e.clock(), e.calendar(), e.log()}));
    return targets;
}

CaptureRouterController::Dependencies Application::routerDependencies() {
    Environment& e = environment_;
    return {.workspace = host_.workspace,
            .fields = host_.fields,
            .keyboard = host_.keyboard,
            .screens = host_.screens,
            .overlay = host_.overlay,
            .recorder = recorder_,
            .notifications = e.notifications(),
            .defaults = e.defaults(),
            .files = e.files(),
            .paths = e.paths(),
            .mainQueue = host_.mainQueue,
            .captureTransitionQueue = transitionQueue_,
            .sends = sends_,
            .clock = e.clock(),
            .log = e.log(),
            .pause = [](std::chrono::microseconds time) { std::this_thread::sleep_for(time); },
            .preview = [&e](const std::string& command, const std::string& text) -> std::optional<std::string> {
                const auto preview = CapturePreview::of(command, text, e.clock().now(), e.calendar());
                if (!preview) return std::nullopt;
                return preview->hint.empty() ? preview->text : preview->text + " — " + preview->hint;
            },
            .requestPermission = {},
            .keyInterestChanged = [this](const std::function<void()>& inForce) { tap_->interestChanged(inForce); }};
}

EventTapManager::Dependencies Application::tapDependencies() {
    Environment& e = environment_;
    return {.taps = host_.taps,
            .permissions = host_.permissions,
            .workspace = host_.workspace,
            .ownWindows = host_.ownWindows,
            .router = *router_,
            .exclusions = *exclusions_,
            .keyboard = host_.keyboard,
            .alerts = host_.alerts,
            .notifications = e.notifications(),
            .defaults = e.defaults(),
            .mainQueue = host_.mainQueue,
            .processingQueue = tapQueue_,
            .clock = e.clock(),
            .log = e.log()};
}
} // namespace snipwren
