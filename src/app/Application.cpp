#include "app/Application.h"

#include <algorithm>
#include <thread>
#include <utility>

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
      journalQueue_("com.snipwren.app.captureJournal"),
      historyQueue_("com.snipwren.app.history"),
      loads_("snipwren-load", 2),
      database_({environment.files(), environment.paths(), environment.clock(), environment.defaults(), databaseQueue_,
                 environment.log()}),
      recoveryLog_(environment.files(), environment.paths(), environment.clock(), environment.notifications()),
      history_({database_, environment.clock(), environment.notifications(), environment.log()}),
      journal_({environment.files(), environment.paths(), environment.clock(), environment.random(), environment.log(),
                [this] { return recoveryLog_.giveUpReserve(); }}),
      historyFeed_({history_, journal_, historyQueue_}),
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
      targets_(makeTargets()),
      delivery_(deliveryDependencies()),
      router_(std::make_unique<CaptureRouterController>(routerDependencies())),
      tap_(std::make_unique<EventTapManager>(tapDependencies())),
      aiPrompt_(std::make_unique<AIPrompt>(environment, host_, assistant_.engine(), *tap_)) {}

Application::~Application() {
    // Whoever destroys this instead of ending the process waits for what still runs: it uses all the parts.
    finish(std::chrono::hours(24));
}

bool Application::finish(std::chrono::milliseconds limit) {
    const auto end = environment_.clock().steadyNow() + limit;
    const auto left = [&] {
        return std::max<std::chrono::nanoseconds>(end - environment_.clock().steadyNow(), std::chrono::nanoseconds(0));
    };
    if (!std::exchange(hasBegunToEnd_, true)) {
        host_.fields.setFocusObserver({});
        aiPrompt_.reset();
        tap_->stop();
        router_->keepUnsentText();
        router_->stopWalking();
    }
    // From what begins something to what it uses. Each is told to end, whatever became of the one before.
    bool ended = transitionQueue_.finish(left());
    ended = journalQueue_.finish(left()) && ended;
    ended = delivery_.finish(std::chrono::ceil<std::chrono::milliseconds>(left())) && ended;
    // What the history has not taken by now, the next program brings.
    ended = historyQueue_.finish(left()) && ended;
    ended = databaseQueue_.finish(left()) && ended;
    if (!ended) environment_.log().line("❌ Application: Ended without waiting for what does not answer");
    return ended;
}

void Application::open() {
    databaseQueue_.start();
    secretsQueue_.start();
    knowledgeQueue_.start();
    knowledgeRebuildQueue_.start();
    transitionQueue_.start();
    tapQueue_.start();
    journalQueue_.start();
    historyQueue_.start();
    refreshQueue_.start();
    assistant_.start();
    database_.open();
    // Before the first key is looked at: password managers are protected from the start.
    firewall_.primeExcludedApps();
    history_.open();
    recoveryLog_.prepare();
    if (const auto opened = journal_.open(); !opened)
        environment_.log().line("❌ CaptureJournal: " + opened.error().description);
    historyFeed_.catchUp();
}

void Application::startTap(bool listening) {
    host_.fields.setFocusObserver([this](const std::string& bundleId, const FieldDescription& field) {
        router_->focusChanged(bundleId, field);
        // A field that the user came back to has its beginning of a trigger again: a tap that holds back only what may be
        // the next key of one must know.
        tap_->interestChanged();
    });
    aiPrompt_->start();
    if (listening) tap_->start();
}

bool Application::isIdle() const { return !router_->isCaptureTransitionThreadSafe() && delivery_.isIdle(); }

CaptureTargets::List Application::makeTargets() {
    Environment& e = environment_;
    CaptureTargets::List targets;
    targets.push_back(
        std::make_unique<LocalNoteTarget>(LocalNoteTarget::Dependencies{e.files(), e.paths(), e.calendar(), e.log()}));
    targets.push_back(std::make_unique<RemindersTarget>(
        RemindersTarget::Dependencies{host_.eventStore, scheduling_.scheduler(), e.calendar(), e.clock(), e.log()}));
    targets.push_back(std::make_unique<ClipboardTarget>(host_.pasteboard, host_.mainQueue, e.log()));
    targets.push_back(std::make_unique<TimerTarget>(
        TimerTarget::Dependencies{scheduling_.scheduler(), e.calendar(), e.clock(), e.log()}));
    targets.push_back(
        std::make_unique<CalcTarget>(CalcTarget::Dependencies{host_.pasteboard, host_.mainQueue, e.log()}));
    targets.push_back(std::make_unique<AlarmTarget>(
        AlarmTarget::Dependencies{scheduling_.scheduler(), e.calendar(), e.clock(), e.log()}));
    targets.push_back(std::make_unique<CalendarTarget>(
        CalendarTarget::Dependencies{host_.eventStore, e.calendar(), e.clock(), e.log()}));
    targets.push_back(std::make_unique<ObsidianTarget>(
        ObsidianTarget::Dependencies{e.files(), e.paths(), e.defaults(), e.calendar(), e.log()}));
    targets.push_back(std::make_unique<SlackTarget>(
        SlackTarget::Dependencies{http_, secrets_, e.clock(), e.log(), SlackTarget::baseUrlFromEnvironment()}));
    targets.push_back(std::make_unique<LogseqTarget>(
        LogseqTarget::Dependencies{e.files(), e.paths(), e.defaults(), e.calendar(), e.log()}));
    return targets;
}

Delivery::Dependencies Application::deliveryDependencies() {
    Environment& e = environment_;
    return {.targets = targets_,
            .journal = journal_,
            .recoveryLog = recoveryLog_,
            .history = historyFeed_,
            .landing = host_.landing,
            .notifications = e.notifications(),
            .mainQueue = host_.mainQueue,
            .journalQueue = journalQueue_,
            .clock = e.clock(),
            .log = e.log(),
            .makeLane = [](const std::string& label) {
                auto lane = std::make_unique<ThreadQueue>(label);
                lane->start();
                return lane;
            }};
}

CaptureRouterController::Dependencies Application::routerDependencies() {
    Environment& e = environment_;
    return {.workspace = host_.workspace,
            .fields = host_.fields,
            .keyboard = host_.keyboard,
            .screens = host_.screens,
            .overlay = host_.overlay,
            .targets = targets_,
            .journal = journal_,
            .delivery = delivery_,
            .notifications = e.notifications(),
            .mainQueue = host_.mainQueue,
            .captureTransitionQueue = transitionQueue_,
            .journalQueue = journalQueue_,
            .loads = loads_,
            .clock = e.clock(),
            .log = e.log(),
            .pause = [](std::chrono::microseconds time) { std::this_thread::sleep_for(time); },
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
