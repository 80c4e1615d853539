#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/TaskPool.h"
#include "capture/CaptureInput.h"
#include "capture/CaptureTargets.h"
#include "capture/CaptureTransition.h"
#include "capture/CaptureWalk.h"
#include "capture/Delivery.h"
#include "capture/HostKeys.h"
#include "capture/OpenCaptureDraft.h"
#include "platform/CaptureOverlay.h"
#include "trigger/KeyCaptureRouter.h"
#include "trigger/TypedText.h"

namespace snipwren {
/// The one controller of capture mode: takes over from a recognised trigger, has it stripped, opens the overlay, keeps
/// what is typed there, and hands it to the delivery once it is confirmed. It composes the model of the typed text, the
/// transition, the walk, the keys of the host and the input; what becomes of a confirmed text is not its business. Main
/// queue, but for what KeyCaptureRouter names.
class CaptureRouterController final : public KeyCaptureRouter, public CaptureOverlayListener {
public:
    struct Dependencies {
        Workspace& workspace;
        FocusedField& fields;
        SyntheticKeyboard& keyboard;
        const ScreenGeometry& screens;
        CaptureOverlay& overlay;
        const CaptureTargets& targets;
        CaptureJournal& journal;
        Delivery& delivery;
        NotificationCenter& notifications;
        SerialQueue& mainQueue;
        /// `com.snipwren.capture-transition`; drained before the controller goes.
        SerialQueue& captureTransitionQueue;
        /// `com.snipwren.app.captureJournal`, where the disk is waited for; drained before the controller goes.
        SerialQueue& journalQueue;
        /// Where picker loads run.
        TaskRunner& loads;
        const Clock& clock;
        Log& log;
        HostTriggerStripper::Pause pause;
        /// After a transition began or ended without a key: calls back, on any thread, once the tap acts upon it. None
        /// where the tap asks on every key anyway.
        std::function<void(std::function<void()> inForce)> keyInterestChanged;
    };
    static constexpr std::chrono::seconds failsafeInterval{1};
    static constexpr int maxFailsafeAttempts = 4;
    /// How long a closing overlay, or the tap that is to take over from it, may keep everybody waiting.
    static constexpr std::chrono::milliseconds returnPatience{300};
    /// After this long the overlay says that it waits for the disk, and may be left.
    static constexpr std::chrono::milliseconds diskPatience{1000};

    explicit CaptureRouterController(const Dependencies& dependencies);
    ~CaptureRouterController() override;

    bool isCaptureModeActiveThreadSafe() const override { return transition_.isCaptureModeActive(); }
    bool isCaptureTransitionThreadSafe() const override { return transition_.isActive(); }
    bool handleKeyEvent(const KeyEvent& event) override;
    bool keepTransitionKey(const KeyEvent& event) override { return transition_.keep(event); }
    KeyInterest keyInterest() const override {
        return transition_.isActive() ? KeyInterest::everything : typedText_.interest();
    }
    void resetPassiveTriggerState(bool clearBuffer) override;
    void notePointerPress() override;
    void suspendPassiveBufferForAppSwitch(const std::string& previousBundleId,
                                          const std::optional<FieldDescription>& previousElement) override;
    void restorePassiveBufferIfMatching(const std::string& bundleId, const FieldDescription& element) override;
    void noteTypingFocus(const std::string& bundleId, const FieldDescription& element) override;
    /// The focus observer's call: suspends, restores and notes in one. Any thread.
    void focusChanged(const std::string& bundleId, const FieldDescription& element);

    const CaptureTargets& registeredTargets() const { return to_.targets; }
    /// Opens capture mode without a typed trigger: from a menu or the command line; `text` stands in it already.
    void enterCaptureModeUI(CaptureTarget& target, const std::string& text = {});

    void overlayDidBecomeKey() override;
    void handleOverlayKey(const KeptKey& key) override;
    void overlayDidReturnKeyboard() override;
    void handleMessageInputChange(const std::string& text) override;
    void moveSelection(int rows) override;
    void confirmSelectedTarget();
    bool handleDeleteOnEmptyInput() override;
    void acceptOfferedText() override;
    void commitCapture() override;
    void cancelCapture() override;
    void exitCaptureMode();
    /// The program ends: what stands in an open overlay goes to the recovery log.
    void keepUnsentText();
    /// Ends the waiting of a walk that is under way, from any thread: its queue is about to be drained.
    void stopWalking() { walks_.request_stop(); }

    CapturePhase phase() const { return transition_.phase(); }
    const CaptureState& state() const { return input_.state(); }
    /// Called after every change of the state.
    void setStateObserver(std::function<void(const CaptureState&)> observer) { stateObserver_ = std::move(observer); }
    const TypedText& typedText() const { return typedText_; }

private:
    /// Applies the event and does what the table says.
    void on(CaptureEvent event);
    void on(CaptureEvent event, std::uint64_t generation);
    void perform(CaptureAction action);
    /// After `triggered`: on the tap's thread or the main queue.
    void beginWalk(CaptureWalk walk);
    void walk(const CaptureWalk& walk);
    bool isStillThere(const CaptureWalk& walk) const;
    void open(const CaptureWalk& walk, const CaptureOpening& opening);
    void failsafeCaptureTransition(std::uint64_t generation, int attempts);
    void beginCapture();
    void writeDown();
    void close();
    void dismiss();
    /// Gives every kept key to the host, up to the end of the next trigger among them.
    void giveKeysBack();
    /// The capture does not open: what of its trigger never reached the host does now.
    void giveTriggerBack(const CaptureWalk& walk);
    void giveToOverlay(const KeptKey& key);
    void takeKeptKeys();
    void loadPickerOptions(CaptureTarget& target);
    /// Runs on the main queue unless the controller is gone by then.
    void later(std::chrono::milliseconds delay, std::function<void()> task);
    SerialQueue::Task whileAlive(std::function<void()> task) const;
    void publish();

    const Dependencies to_;
    TypedText typedText_;
    CaptureTransition transition_;
    CaptureWalker walker_;
    HostKeys hostKeys_;
    OpenCaptureDraft draft_;

    CaptureInput input_;
    std::function<void(const CaptureState&)> stateObserver_;
    Rect anchor_;
    CaptureWalk current_;
    std::shared_ptr<const RunningApplication> previouslyActiveApp_;
    std::stop_source activePickerOptionsLoadTask_;
    std::stop_source walks_;
    SerialQueue::TimerId closingTimer_ = 0;
    /// Main-queue tasks of ours that run after the destructor find this gone.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};
} // namespace snipwren
