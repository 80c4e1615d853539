#pragma once

#include "platform/Geometry.h"

namespace snipwren {
/// The window in which a capture is typed. It shows the router's published state and calls the router's operations; this
/// is what the router needs of it. Main queue, except hasKeyboard.
class CaptureOverlay {
public:
    virtual ~CaptureOverlay() = default;
    /// Opens at the rectangle (the caret, or what stands for it) and asks for the keyboard. Once it has it, it calls
    /// CaptureRouterController::overlayDidBecomeKey().
    virtual void present(const Rect& anchor) = 0;
    /// Closes and gives the keyboard back: hands the key presses that it still got to
    /// CaptureRouterController::handleOverlayKey(), then calls overlayDidReturnKeyboard().
    virtual void dismiss() = 0;
    /// Any thread, without waiting: true while key presses reach the overlay's text field.
    virtual bool hasKeyboard() const = 0;
};

/// Whether one of our own editable windows (overlay, settings) has the keyboard. Asked on every key; any thread.
class OwnWindowKeyboardGuard {
public:
    virtual ~OwnWindowKeyboardGuard() = default;
    virtual bool isOwnWindowKey() const = 0;
};
} // namespace snipwren
