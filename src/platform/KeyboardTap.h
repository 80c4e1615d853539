#pragma once

#include <memory>
#include <string>

#include "base/Result.h"
#include "platform/KeyEvent.h"

namespace snipwren {
struct TapError {
    std::string description;
};

/// What a tap tells. All calls come on the thread that runs the tap.
class KeyboardTapListener {
public:
    virtual ~KeyboardTapListener() = default;
    /// True swallows the key. Must return fast: the whole session's keyboard waits.
    virtual bool handleKeyEvent(const KeyEvent& event) = 0;
    /// The system disabled the tap because a call took too long.
    virtual void handleTimeout() = 0;
    /// The system disabled the tap for another reason (input taken by the system, the grab lost).
    virtual void handleUserInputDisable() = 0;
};

/// One installed listener for the key-downs of the whole session.
class KeyboardTap {
public:
    virtual ~KeyboardTap() = default;
    /// Delivers events on the calling thread until invalidate(). A new tap is not yet enabled.
    virtual void run() = 0;
    /// Ends run(), from any thread, for good.
    virtual void invalidate() = 0;
    virtual void setEnabled(bool enabled) = 0;
    virtual bool isEnabled() const = 0;
};

class KeyboardTapProvider {
public:
    virtual ~KeyboardTapProvider() = default;
    /// Called on the thread that will run the tap.
    virtual Result<std::shared_ptr<KeyboardTap>, TapError> createTap(KeyboardTapListener& listener) = 0;
};

/// Posts key presses of our own, which never come back through our tap. Any thread.
class SyntheticKeyboard {
public:
    virtual ~SyntheticKeyboard() = default;
    /// A key down and up. False when it could not be posted.
    virtual bool pressKey(int keyCode) = 0;
    /// Types text, as the user would. False when it could not.
    virtual bool typeText(const std::string& text) = 0;
};
} // namespace snipwren
