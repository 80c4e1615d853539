#pragma once

#include <string>

#include "platform/Geometry.h"
#include "platform/KeyEvent.h"

namespace snipwren {
/// What an overlay tells of the keyboard and of what is typed into it. Main queue.
class CaptureOverlayListener {
public:
    virtual ~CaptureOverlayListener() = default;
    /// The overlay has the keyboard: what was typed meanwhile goes to it.
    virtual void overlayDidBecomeKey() = 0;
    virtual void handleMessageInputChange(const std::string& text) = 0;
    virtual void commitCapture() = 0;
    virtual void cancelCapture() = 0;
    /// By one row up (-1) or down (1).
    virtual void moveSelection(int rows) = 0;
    /// Delete in an empty text; true when it did something.
    virtual bool handleDeleteOnEmptyInput() = 0;
    virtual void acceptOfferedText() = 0;
    /// A key for an overlay without a text field of its own, or one that the overlay got after the capture had ended:
    /// that one goes to the host, before every later one.
    virtual void handleOverlayKey(const KeptKey& key) = 0;
    /// No more keys reach the overlay, and those that did have been handed over.
    virtual void overlayDidReturnKeyboard() = 0;
};

/// The window in which a capture is typed. It shows the router's published state and calls the router's operations; this
/// is what the router needs of it. Main queue, except hasKeyboard.
class CaptureOverlay {
public:
    virtual ~CaptureOverlay() = default;
    /// Opens at the rectangle (the caret, or what stands for it) and asks for the keyboard. Once it has it, it calls
    /// CaptureOverlayListener::overlayDidBecomeKey().
    virtual void present(const Rect& anchor) = 0;
    /// Closes and gives the keyboard back: hands the key presses that it still got to
    /// CaptureOverlayListener::handleOverlayKey(), then calls overlayDidReturnKeyboard().
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
