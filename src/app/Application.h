#pragma once

#include <memory>

#include "app/AIAssistant.h"
#include "app/AIPrompt.h"
#include "app/EngineCompletion.h"
#include "app/Environment.h"
#include "app/Host.h"
#include "app/Scheduling.h"
#include "capture/CaptureRouterController.h"
#include "capture/Delivery.h"
#include "context/graph/KnowledgeSuggestionEngine.h"
#include "context/notes/SecondBrainIndexer.h"
#include "context/server/ContextServices.h"
#include "hosts/portable/CurlHttpClient.h"
#include "hosts/portable/NoLegacyKeychain.h"
#include "records/CaptureHistoryFeed.h"
#include "records/CaptureJournal.h"
#include "store/DatabaseManager.h"
#include "store/KeychainHelper.h"
#include "store/PrivacyFirewall.h"
#include "trigger/EventTapManager.h"

namespace snipwren {
/// The object graph of a running Snipwren on one host: owns one of each component in dependency order and lets go of
/// them in reverse.
class Application {
public:
    Application(Environment& environment, const Host& host);
    ~Application();

    static constexpr std::chrono::milliseconds endPatience{2500};

    /// Opens the stores. Faults are logged; the program goes on with what works.
    void open();
    /// Delivers what an ended program left behind, or puts it into the recovery log. After open().
    Delivery::Recovered recover() { return delivery_.recover(); }
    /// Ends the tap, an open capture, the lanes and every queue that waits for something, in a bounded time; what was
    /// not delivered stays in the journal. False when something still holds a thread: then the process ends without
    /// destroying this object, which would wait for that thread.
    bool finish(std::chrono::milliseconds limit = endPatience);
    /// Starts what follows the keyboard; `listening` is false for a start without the tap itself, which tap() starts later.
    void startTap(bool listening = true);
    /// Serves the context to AI tools when the user's settings say so; for a program that stays.
    void startContextServer() { context_.launch(); }

    CaptureRouterController& router() { return *router_; }
    const CaptureTargets& targets() const { return targets_; }
    Delivery& delivery() { return delivery_; }
    CaptureJournal& journal() { return journal_; }
    EventTapManager& tap() { return *tap_; }
    FallbackCaptureLogger& recoveryLog() { return recoveryLog_; }
    CaptureHistoryStore& history() { return history_; }
    DatabaseManager& database() { return database_; }
    PrivacyFirewall& firewall() { return firewall_; }
    /// Timers and alarms; a program that stays calls its start() and startCountdown().
    Scheduling& scheduling() { return scheduling_; }
    /// Opened by the first search, rebuild or open(): captures do without it.
    SecondBrainIndexer& secondBrain() { return secondBrain_; }
    KnowledgeSuggestionEngine& knowledge() { return knowledge_; }
    HttpClient& http() { return http_; }
    MCPServer& contextServer() { return context_.server(); }
    AIPromptController& aiPrompt() { return aiPrompt_->controller(); }
    Environment& environment() { return environment_; }
    const Host& host() const { return host_; }
    /// No transition under way and nothing on its way to a target.
    bool isIdle() const;

private:
    class Exclusions;

    CaptureTargets::List makeTargets();
    Delivery::Dependencies deliveryDependencies();
    CaptureRouterController::Dependencies routerDependencies();
    EventTapManager::Dependencies tapDependencies();

    Environment& environment_;
    const Host host_;
    ThreadQueue databaseQueue_;
    ThreadQueue transitionQueue_;
    ThreadQueue tapQueue_;
    ThreadQueue journalQueue_;
    ThreadQueue historyQueue_;
    TaskPool loads_;
    DatabaseManager database_;
    FallbackCaptureLogger recoveryLog_;
    CaptureHistoryStore history_;
    CaptureJournal journal_;
    CaptureHistoryFeed historyFeed_;
    PrivacyFirewall firewall_;
    /// Behind the firewall, so that its last refresh has run before the firewall goes.
    ThreadQueue refreshQueue_;
    ThreadQueue secretsQueue_;
    NoLegacyKeychain legacyKeychain_;
    KeychainHelper secrets_;
    CurlHttpClient http_;
    Scheduling scheduling_;
    ThreadQueue knowledgeQueue_;
    ThreadQueue knowledgeRebuildQueue_;
    SecondBrainIndexer secondBrain_;
    KnowledgeSuggestionEngine knowledge_;
    AIAssistant assistant_;
    EngineCompletion completion_;
    ContextServices context_;
    std::unique_ptr<Exclusions> exclusions_;
    CaptureTargets targets_;
    Delivery delivery_;
    std::unique_ptr<CaptureRouterController> router_;
    std::unique_ptr<EventTapManager> tap_;
    std::unique_ptr<AIPrompt> aiPrompt_;
    bool hasBegunToEnd_ = false;
};
} // namespace snipwren
