#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Clock.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "platform/AlertPresenter.h"
#include "platform/CaptureOverlay.h"
#include "platform/KeyboardTap.h"
#include "platform/Workspace.h"
#include "trigger/AppExclusions.h"
#include "trigger/KeyCaptureRouter.h"
#include "trigger/TypingContext.h"

namespace snipwren {
/// Receives what the tap learns for completion suggestions. Called on the processing queue, except the two accept
/// handlers and selectSuggestion, which come on the main queue.
class EventTapManagerDelegate {
public:
    virtual ~EventTapManagerDelegate() = default;
    virtual void typingContextChanged(const TypingContext::Snapshot& context, const std::string& appBundleId) = 0;
    virtual void handleTab() = 0;
    virtual void handleReturn() = 0;
    /// From 1 to 6.
    virtual void selectSuggestion(int position) = 0;
};

/// Owns the one keyboard listener of the session: decides for every key press whom it belongs to and whether it is
/// swallowed, and keeps the tap alive. `tapLock_` guards the tap and its counters; the published flags are atomics.
/// The callback never blocks, allocates nothing for ordinary keys and never logs what was typed.
class EventTapManager final : public KeyboardTapListener {
public:
    struct Dependencies {
        KeyboardTapProvider& taps;
        Permissions& permissions;
        Workspace& workspace;
        OwnWindowKeyboardGuard& ownWindows;
        KeyCaptureRouter& router;
        AppExclusions& exclusions;
        SyntheticKeyboard& keyboard;
        AlertPresenter& alerts;
        NotificationCenter& notifications;
        UserDefaults& defaults;
        SerialQueue& mainQueue;
        /// `com.snipwren.app.tapQueue`
        SerialQueue& processingQueue;
        const Clock& clock;
        Log& log;
    };
    static constexpr std::chrono::milliseconds watchdogPeriod{3000};
    static constexpr std::chrono::milliseconds watchdogCooldown{2500};
    static constexpr std::chrono::milliseconds reenableDelay{2000};
    static constexpr std::chrono::milliseconds inputDisableCheckDelay{1000};
    static constexpr int maxConsecutiveTimeouts = 3;

    explicit EventTapManager(const Dependencies& dependencies);
    ~EventTapManager() override;

    /// Installs a new tap on a thread of its own; an older one is discarded. Main queue.
    void start();
    /// Main queue.
    void stop();
    void loadShortcutPreferences();
    void clearContext(const std::optional<std::string>& appBundleId, bool clearPassiveBuffer);

    bool handleKeyEvent(const KeyEvent& event) override;
    void handleTimeout() override;
    void handleUserInputDisable() override;
    void handleMissedKeys() override;
    void handlePointerPress() override;
    KeyInterest keyInterest() const override;
    std::vector<KeyChord> swallowableChords() const override;
    /// To be called after one of the published flags below changed, a transition began without a key or the text before
    /// the caret became another one, so that the tap holds back the keys it then must. `inForce` is called once it does (at once where no tap runs), on any thread.
    /// Any thread.
    void interestChanged(const std::function<void()>& inForce = {});

    /// Not owned; none ends the typing context's feeding. Main queue, while no tap runs.
    void setDelegate(EventTapManagerDelegate* delegate) { delegate_ = delegate; }

    bool isRunning() const;
    bool isTapPermanentlyDisabled() const { return isTapPermanentlyDisabled_; }
    SteadyPoint lastKeyPressTime() const;
    const TypingContext& typingContext() const { return typingContext_; }

    std::atomic<bool> isAIPromptMode = false;
    std::atomic<bool> isPlaceholderModeActive = false;
    std::atomic<bool> isSuggestionsOverlayVisible = false;
    std::atomic<bool> lastActionWasSuggestionWithTrailingSpace = false;

private:
    /// What a rule of the key table answers.
    enum class Verdict { pass, swallow, next };

    void runTapThread(unsigned long generation);
    void scheduleWatchdog();
    void watchdogTick();
    void enableUnlessDisabled();
    void showPermissionAlert();
    bool isTapEnabledNow() const;

    Verdict applyControlSpace(const KeyEvent& event);
    Verdict applyAIPromptKey(const KeyEvent& event);
    Verdict applySuggestionKeys(const KeyEvent& event);
    Verdict applySpaceCleanUp(const KeyEvent& event);
    Verdict applyShortcuts(const KeyEvent& event);
    void processKeystroke(int keyCode, const std::string& characters, const std::string& appBundleId);
    Verdict announce(const char* notification, UserInfo info = {});

    Dependencies to_;
    EventTapManagerDelegate* delegate_ = nullptr;
    TypingContext typingContext_;

    mutable std::mutex tapLock_;
    std::shared_ptr<KeyboardTap> eventTap_;
    unsigned long tapGeneration_ = 0;
    int consecutiveTimeouts_ = 0;
    std::optional<SteadyPoint> lastTapTimeoutAt_;
    SteadyPoint lastKeyPressTime_{};
    /// Every thread started and not yet joined; all but the last are ending.
    std::vector<std::thread> tapThreads_;

    std::atomic<bool> isTapPermanentlyDisabled_ = false;
    /// The four modifiers as bits, so that the tap thread reads them in one go.
    std::atomic<unsigned> shortcutModifiers_;
    SerialQueue::TimerId tapWatchdogTimer_ = 0;
    NotificationCenter::Subscription preferenceSubscription_;
    /// Main-queue tasks of ours that run after the destructor find this gone.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};
} // namespace snipwren
