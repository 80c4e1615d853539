#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Clock.h"
#include "hosts/linux/x11/X11KeyboardTap.h"
#include "trigger/TypedText.h"

namespace snipwren {
/// Detects triggers as the program does and remembers what it was told.
class RecordingListener : public KeyboardTapListener {
public:
    struct Trigger {
        std::string body;
        bool reachedHost = false;
    };

    bool handleKeyEvent(const KeyEvent& event) override {
        if (const int stall = stallMilliseconds.exchange(0))
            std::this_thread::sleep_for(std::chrono::milliseconds(stall));
        const std::lock_guard lock(mutex_);
        ++keys_;
        if (transition) {
            kept_ += event.characters;
            return true;
        }
        for (const KeyChord& chord : chords) {
            if (chord == KeyChord{event.keyCode, event.modifiers}) {
                ++chordsPressed_;
                return true;
            }
        }
        if (event.keyCode != keycode::deleteKey)
            observed_ += event.keyCode == keycode::returnKey ? "\n" : std::string(event.characters);
        const auto match = typed_.apply(event);
        if (!match) return false;
        triggers_.push_back({match->triggerBody, event.reachedHost});
        typed_.forget();
        transition = openTransitions;
        return true;
    }
    void handleTimeout() override { ++timeouts; }
    void handleUserInputDisable() override {
        ++disabled;
        if (onDisabled) onDisabled();
    }
    void handleMissedKeys() override {
        ++missed;
        typed_.forget();
    }
    void handlePointerPress() override {
        ++clicks;
        typed_.doubt();
    }
    KeyInterest keyInterest() const override { return transition ? KeyInterest::everything : typed_.interest(); }
    std::vector<KeyChord> swallowableChords() const override { return chords; }

    std::vector<Trigger> triggers() const {
        const std::lock_guard lock(mutex_);
        return triggers_;
    }
    std::size_t count(bool reachedHost) const {
        std::size_t n = 0;
        for (const Trigger& trigger : triggers()) n += trigger.reachedHost == reachedHost ? 1 : 0;
        return n;
    }
    std::string observed() const {
        const std::lock_guard lock(mutex_);
        return observed_;
    }
    std::string kept() const {
        const std::lock_guard lock(mutex_);
        return kept_;
    }
    int keys() const {
        const std::lock_guard lock(mutex_);
        return keys_;
    }
    int chordsPressed() const {
        const std::lock_guard lock(mutex_);
        return chordsPressed_;
    }

    const std::vector<std::string> words{"note",  "reminders", "copy",     "timer", "calc",
                                         "alarm", "calendar",  "obsidian", "slack", "logseq"};
    std::vector<KeyChord> chords;
    bool openTransitions = false;
    std::atomic<bool> transition = false;
    std::atomic<int> timeouts = 0;
    std::atomic<int> disabled = 0;
    std::atomic<int> missed = 0;
    std::atomic<int> clicks = 0;
    std::function<void()> onDisabled;
    /// The next answer takes this long.
    std::atomic<int> stallMilliseconds = 0;

private:
    SystemClock clock_;
    TypedText typed_{clock_, words};
    mutable std::mutex mutex_;
    std::vector<Trigger> triggers_;
    std::string observed_;
    std::string kept_;
    int keys_ = 0;
    int chordsPressed_ = 0;
};

/// A tap on a thread of its own, for as long as this lives.
class RunningTap {
public:
    explicit RunningTap(RecordingListener& listener, X11KeyboardTap::Options options = {}, bool enabled = true) {
        X11KeyboardTapProvider provider(ownKeys, std::move(options));
        auto made = provider.createTap(listener);
        if (!made) {
            error = made.error().description;
            return;
        }
        tap = *made;
        listener.onDisabled = [this] { tap->setEnabled(true); };
        tap->setEnabled(enabled);
        thread_ = std::thread([this] { tap->run(); });
        // The listener is told when the tap begins.
        for (int i = 0; enabled && listener.missed == 0 && i < 2000; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~RunningTap() {
        if (!tap) return;
        tap->invalidate();
        thread_.join();
    }

    OwnKeys ownKeys;
    std::shared_ptr<KeyboardTap> tap;
    std::string error;

private:
    std::thread thread_;
};
} // namespace snipwren
