#pragma once

#include <memory>

#include "app/AIAssistant.h"
#include "app/AIPrompt.h"
#include "app/EngineCompletion.h"
#include "app/Environment.h"
#include "app/Host.h"
#include "app/LocalRecorder.h"
#include "app/Scheduling.h"
#include "capture/CaptureRouterController.h"
#include "context/ContextServices.h"
#include "context/KnowledgeSuggestionEngine.h"
#include "context/SecondBrainIndexer.h"
#include "platform/portable/CurlHttpClient.h"
#include "platform/portable/NoLegacyKeychain.h"
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

    /// Opens the stores. Faults are logged; the program goes on with what works.
    void open();
    /// Starts what follows the keyboard; `listening` is false for a start without the tap itself, which tap() starts later.
    void startTap(bool listening = true);
    /// Serves the context to AI tools when the user's settings say so; for a program that stays.
    void startContextServer() { context_.launch(); }

    CaptureRouterController& router() { return *router_; }
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
    /// No transition under way and no send running.
    bool isIdle() const;

private:
    class Exclusions;

    CaptureRouterController::Targets makeTargets();
    CaptureRouterController::Dependencies routerDependencies();
    EventTapManager::Dependencies tapDependencies();

    Environment& environment_;
    const Host host_;
    ThreadQueue databaseQueue_;
    ThreadQueue transitionQueue_;
    ThreadQueue tapQueue_;
    TaskPool sends_;
    DatabaseManager database_;
    FallbackCaptureLogger recoveryLog_;
    CaptureHistoryStore history_;
    LocalRecorder recorder_;
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
    std::unique_ptr<CaptureRouterController> router_;
    std::unique_ptr<EventTapManager> tap_;
    std::unique_ptr<AIPrompt> aiPrompt_;
};
} // namespace snipwren
