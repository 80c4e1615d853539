#pragma once

#include <optional>
#include <string>

#include "platform/KeyboardTap.h"
#include "trigger/FocusFingerprint.h"

namespace snipwren {
/// What the keyboard tap asks of capture mode. Everything here is called on the tap thread, on every key, and answers at
/// once without waiting for any other thread's work.
class KeyCaptureRouter {
public:
    virtual ~KeyCaptureRouter() = default;
    virtual bool isCaptureModeActiveThreadSafe() const = 0;
    virtual bool isCaptureTransitionThreadSafe() const = 0;
    /// Trigger detection; true swallows the key.
    virtual bool handleKeyEvent(const KeyEvent& event) = 0;
    /// A key pressed while the overlay is opening: kept for it, in order. False when the transition has just ended, and
    /// the key should go where keys go now.
    virtual bool keepTransitionKey(const KeyEvent& event) = 0;
    /// Which keys trigger detection or a transition may swallow next.
    virtual KeyInterest keyInterest() const = 0;
    /// With `clearBuffer` what was typed is forgotten, down to the memory it stood in.
    virtual void resetPassiveTriggerState(bool clearBuffer) = 0;
    /// The pointer was pressed somewhere.
    virtual void notePointerPress() = 0;

    /// The field (none: unknown) that had the keyboard before another application took it.
    virtual void suspendPassiveBufferForAppSwitch(const std::string& previousBundleId,
                                                  const std::optional<FieldDescription>& previousElement) = 0;
    virtual void restorePassiveBufferIfMatching(const std::string& bundleId, const FieldDescription& element) = 0;
    virtual void noteTypingFocus(const std::string& bundleId, const FieldDescription& element) = 0;
};
} // namespace snipwren
