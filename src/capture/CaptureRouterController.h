#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/TaskPool.h"
#include "base/UserDefaults.h"
#include "capture/CaptureRecorder.h"
#include "capture/CaptureState.h"
#include "capture/CaptureTransition.h"
#include "capture/CaretLocator.h"
#include "capture/HostFocus.h"
#include "capture/HostTriggerStripper.h"
#include "platform/CaptureOverlay.h"
#include "trigger/KeyCaptureRouter.h"
#include "trigger/PassiveTriggerBuffer.h"

namespace snipwren {
/// The one controller of capture mode: takes over from a recognised trigger, has it stripped, opens the overlay, keeps
/// what is typed there and hands it to the target; then records what came of it. It composes the passive buffer, the
/// transition, the stripper and the caret locator. Main queue, but for what KeyCaptureRouter names.
class CaptureRouterController final : public KeyCaptureRouter {
public:
    using Targets = std::vector<std::unique_ptr<CaptureTarget>>;
    struct Dependencies {
        Workspace& workspace;
        FocusedField& fields;
        SyntheticKeyboard& keyboard;
        const ScreenGeometry& screens;
        CaptureOverlay& overlay;
        CaptureRecorder& recorder;
        NotificationCenter& notifications;
        UserDefaults& defaults;
        FileIO& files;
        const Paths& paths;
        SerialQueue& mainQueue;
        /// `com.snipwren.capture-transition`
        SerialQueue& captureTransitionQueue;
        /// Where sends and picker loads run.
        TaskRunner& sends;
        const Clock& clock;
        Log& log;
        HostTriggerStripper::Pause pause;
        /// What Return would do with the text, for a command word; none when there is nothing to show.
        std::function<std::optional<std::string>(const std::string& command, const std::string& text)> preview;
        /// Asks for the permission that a target needs, where it was never asked for. Runs on the send runner; the
        /// target's own error reports a refusal.
        std::function<void(const std::string& command)> requestPermission;
        /// After a transition began or ended without a key: calls back, on any thread, once the tap acts upon it. None
        /// where the tap asks on every key anyway.
        std::function<void(std::function<void()> inForce)> keyInterestChanged;
    };
    static constexpr std::chrono::seconds failsafeInterval{1};
    static constexpr int maxFailsafeAttempts = 4;
    /// How long a closing overlay, or the tap that is to take over from it, may keep everybody waiting.
    static constexpr std::chrono::milliseconds returnPatience{300};

    CaptureRouterController(const Dependencies& dependencies, Targets registeredTargets);
    ~CaptureRouterController() override;

    bool isCaptureModeActiveThreadSafe() const override { return transition_.isCaptureModeActive(); }
    bool isCaptureTransitionThreadSafe() const override { return transition_.isActive(); }
    bool handleKeyEvent(const KeyEvent& event) override;
    bool keepTransitionKey(const KeyEvent& event) override { return transition_.keep(event); }
    void resetPassiveTriggerState(bool clearBuffer) override;
    std::string passiveText() const override { return passiveBuffer_.text(); }
    void suspendPassiveBufferForAppSwitch(const std::string& previousBundleId,
                                          const std::optional<FieldDescription>& previousElement) override;
    void restorePassiveBufferIfMatching(const std::string& bundleId, const FieldDescription& element) override;
    void noteTypingFocus(const std::string& bundleId, const FieldDescription& element) override;
    /// The focus observer's call: suspends, restores and notes in one. Any thread.
    void focusChanged(const std::string& bundleId, const FieldDescription& element);

    const Targets& registeredTargets() const { return registeredTargets_; }
    /// None for an unknown word.
    CaptureTarget* target(const std::string& commandName) const;

    /// Opens capture mode without a typed trigger: from a menu or the command line.
    void enterCaptureModeUI(CaptureTarget& target);
    /// The overlay has the keyboard: what was typed meanwhile goes to it. Main queue.
    void overlayDidBecomeKey();
    /// A key for an overlay without a text field of its own, or one that the overlay got after the capture had ended:
    /// that one goes to the host, before every later one.
    void handleOverlayKey(const KeptKey& key);
    /// No more keys reach the overlay, and those that did have been handed over. Main queue.
    void overlayDidReturnKeyboard();
    void handleMessageInputChange(const std::string& text);
    void updateCalcLivePreview(const std::string& text);
    /// By one row up (-1) or down (1).
    void moveSelection(int rows);
    void confirmSelectedTarget();
    /// Delete in an empty message goes back to the picker; true when it did.
    bool handleDeleteOnEmptyInput();
    void acceptOfferedText();
    void commitCapture();
    void cancelCapture();
    void exitCaptureMode();
    /// The program ends: what stands in an open overlay goes to the recovery log.
    void keepUnsentText();
    /// The notice to show when the folder that the target writes to is missing.
    std::optional<UserInfo> missingPathFailure(const std::string& commandName) const;

    const CaptureState& state() const { return state_; }
    /// Called after every change of the state.
    void setStateObserver(std::function<void(const CaptureState&)> observer) { stateObserver_ = std::move(observer); }
    /// Sends that have not come to an end.
    int runningSends() const { return runningSends_; }
    const PassiveTriggerBuffer& passiveBuffer() const { return passiveBuffer_; }

private:
    bool handlePassiveModeTriggerDetection(const KeyEvent& event);
    /// Lets the passive buffer have the key; the trigger that it ends.
    std::optional<PassiveTriggerBuffer::Match> passiveMatch(const KeyEvent& event);
    void beginWalk(const PassiveTriggerBuffer::Match& match, std::size_t reachedHost, std::uint64_t generation);
    /// Gives every kept key to whom it belongs by now, and ends the transition or begins the next.
    void replayKeptKeys(std::uint64_t generation);
    void takeKeptKeys();
    /// Gives the owed keys to the host up to the end of the next trigger among them, of which the host then gets no
    /// character; false when there is none.
    bool replayIntoHostUpToATrigger();
    /// Closes the overlay; from here on a transition is under way until the keyboard is back and every key is given.
    void returnKeyboard();
    void enter(CaptureTarget& target, std::optional<TypedTrigger> trigger, std::uint64_t generation);
    void open(CaptureTarget& target, HostCaptureContext context, const Rect& anchor, std::uint64_t generation);
    void failsafeCaptureTransition(std::uint64_t generation, int attempts);
    /// Ends a transition that led nowhere: what was typed meanwhile goes where it would have gone without us.
    void abandonTransition(std::uint64_t generation);
    void replayIntoOverlay(const KeptKey& key);
    void replayIntoHost(const KeptKey& key);
    void loadPickerOptions(CaptureTarget& target);
    void refreshShownOptions();
    void send(CaptureTarget& target, const std::string& text, const std::optional<PickerOption>& option);
    void reportFailure(const std::string& command, const std::string& text, const CaptureError& error);
    void publish();

    Dependencies to_;
    const Targets registeredTargets_;
    std::vector<std::string> commandWords_;
    PassiveTriggerBuffer passiveBuffer_;
    CaptureTransition transition_;
    HostTriggerStripper stripper_;
    CaretLocator caretLocator_;

    CaptureState state_;
    std::function<void(const CaptureState&)> stateObserver_;
    HostCaptureContext hostContext_;
    std::shared_ptr<const RunningApplication> previouslyActiveApp_;
    std::stop_source activePickerOptionsLoadTask_;
    /// By command word: what was typed when a capture was cancelled.
    std::map<std::string, std::string> cancelledTexts_;
    /// Keys pressed during a transition that were taken from it and have no owner yet, oldest first.
    std::deque<KeptKey> owedKeys_;
    /// While kept keys are being replayed, one of which may close the overlay.
    bool isReplaying_ = false;
    /// The overlay is closing: whatever it still gets comes before what is owed.
    bool isReturningKeyboard_ = false;
    SerialQueue::TimerId returnTimer_ = 0;
    std::stop_source sendStop_;
    std::atomic<int> runningSends_ = 0;
    /// Main-queue tasks of ours that run after the destructor find this gone.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};
} // namespace snipwren
