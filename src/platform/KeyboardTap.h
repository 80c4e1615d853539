#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/Result.h"
#include "platform/KeyEvent.h"

namespace snipwren {
struct TapError {
    std::string description;
};

/// Which of the coming keys a tap has to hold back until the verdict.
enum class KeyInterest : unsigned char {
    nothing,
    /// A slash: one stands before the caret already.
    nextSlash,
    /// Space and Return: they may end a command word.
    terminators,
    everything,
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
    /// Keys were pressed that the tap could not see in full (another program held the keyboard, a key repeated, the
    /// connection was lost): what was typed so far is no longer known.
    virtual void handleMissedKeys() {}
    /// A button of the pointer was pressed: the caret may be elsewhere now.
    virtual void handlePointerPress() {}

    /// Some systems deliver a key and tell of it at the same time, unless it was asked for beforehand; a tap there asks
    /// these two. Which keys may have to be swallowed next; asked after every verdict, so it takes effect before the key
    /// that led to it is answered.
    virtual KeyInterest keyInterest() const { return KeyInterest::nothing; }
    /// The combinations besides those that may have to be swallowed; asked when the tap is enabled and after
    /// interestChanged().
    virtual std::vector<KeyChord> swallowableChords() const { return {}; }
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
    /// keyInterest() or swallowableChords() may answer differently now. `inForce` (may be none) is called once not a
    /// single key passes by the new answers, on the tap's thread; never when the tap ends first. Any thread, without
    /// waiting.
    virtual void interestChanged(const std::function<void()>& inForce) {
        if (inForce) inForce();
    }
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
    /// A key down and up while these modifiers are held. False when it could not be posted.
    virtual bool pressKey(int keyCode, const Modifiers& modifiers) = 0;
    /// Types text, as the user would. False when it could not.
    virtual bool typeText(const std::string& text) = 0;
};
} // namespace snipwren
