#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/x11/OwnKeys.h"
#include "hosts/linux/x11/TapGuard.h"
#include "hosts/linux/x11/TapLink.h"
#include "hosts/linux/x11/TapWatchdog.h"
#include "platform/KeyboardTap.h"

namespace snipwren {
/// The key tap of an X11 session. Every key is observed by raw events, which delay nobody; only the few keys that may
/// have to be swallowed next are grabbed and answered one by one. An answer that takes too long is given by the watchdog,
/// one that cannot come (the program is stopped) by the guard, so that the keyboard never hangs. State belongs to the
/// thread in run(), what other threads ask for is under `requestLock_` or atomic.
class X11KeyboardTap final : public KeyboardTap {
public:
    struct Options {
        /// Empty: DISPLAY.
        std::string display;
        /// Grabs every slash and not only a second one: exact at any typing speed, but each slash takes the focus from
        /// its application for an instant.
        bool grabEverySlash = false;
        std::chrono::milliseconds answerLimit{400};
        /// The guard's program; empty for no guard.
        std::string guardProgram;
    };

    X11KeyboardTap(std::unique_ptr<TapLink> link, KeyboardTapListener& listener, OwnKeys& ownKeys, Options options);
    ~X11KeyboardTap() override;
    /// What the system refuses: no descriptor, no thread.
    bool start();

    void run() override;
    void invalidate() override;
    void setEnabled(bool enabled) override;
    bool isEnabled() const override { return enabled_ && connected_; }
    void interestChanged(const std::function<void()>& inForce) override;

private:
    /// Something that happened, in the order of the server.
    struct Item {
        enum class Kind { press, release, state, button } kind = Kind::press;
        std::uint8_t keycode = 0;
        std::uint32_t time = 0;
        std::uint16_t source = 0;
        std::uint32_t sequence = 0;
        XcbOwned<xcb_generic_event_t> state;
    };

    /// Handles events until the connection breaks or the tap is invalidated.
    void serve();
    void reconnect();
    void beGuarded();
    void wake();
    void takeRequests();
    void applyEnabled(bool enabled);
    void handle(XcbOwned<xcb_generic_event_t> event);
    void handleRaw(const xcb_generic_event_t& event);
    void handleButton(const xcb_generic_event_t& event);
    void handleKeyboardEvent(XcbOwned<xcb_generic_event_t> event);
    /// A grabbed key, which waits for its answer.
    void handleGrabbed(const xcb_generic_event_t& event);
    /// Takes what has happened in turn, up to a press whose grabbed event has yet to come.
    void drain();
    void apply(const Item& item);
    /// One that a grabbed key came before.
    void applyPassedOver(const Item& item);
    void observe(const Item& press);
    void checkBarrier();
    void dropBarrier();
    /// How long to wait for the next event, in milliseconds; -1 for ever.
    int patience() const;
    void noteHeldKey(std::uint8_t keycode, std::uint32_t time, bool pressed);
    /// The listener's verdict; none when the watchdog gave the answer.
    std::optional<bool> ask(const XkbKeyboard::Press& press, bool isRepeat, bool reachedHost);
    /// Installs the grabs that the listener's interest asks for now.
    void rearm();
    void answer(const xcb_generic_event_t& event, bool swallow);
    void missedKeys();
    void timedOut();
    void loadChords();
    xcb_connection_t* connection() const { return link_->connection.get(); }

    std::unique_ptr<TapLink> link_;
    KeyboardTapListener& listener_;
    OwnKeys& ownKeys_;
    const Options options_;
    FileDescriptor wake_;
    TapGuard guard_;

    std::deque<Item> pending_;
    /// A round trip under way: when its reply is here and the first press has no grabbed event yet, none will come.
    struct Barrier {
        unsigned sequence = 0;
        bool replied = false;
    };
    std::optional<Barrier> barrier_;
    struct HeldKey {
        std::uint8_t keycode = 0;
        std::uint32_t since = 0;
    };
    std::optional<HeldKey> heldKey_;
    /// The last press told as observed, for grabbed events that come without having been expected.
    KeyCombination lastObserved_;
    std::uint32_t lastObservedTime_ = 0;
    /// Whose repetitions are swallowed with it, as long as no other key is; 0 for none.
    std::uint8_t swallowedKeycode_ = 0;
    bool applied_ = false;
    KeyInterest interest_ = KeyInterest::nothing;
    std::chrono::steady_clock::time_point everyKeySince_;

    std::atomic<bool> stopping_ = false;
    std::atomic<bool> enabled_ = false;
    std::atomic<bool> connected_ = true;
    std::atomic<bool> requested_ = false;
    std::mutex requestLock_;
    bool interestRequested_ = false;
    std::vector<std::function<void()>> toldWhenInForce_;

    /// Guards which connection the watchdog releases.
    std::mutex linkLock_;
    TapWatchdog watchdog_;
};

/// Makes taps for the session that DISPLAY names. Thread safe.
class X11KeyboardTapProvider final : public KeyboardTapProvider {
public:
    X11KeyboardTapProvider(OwnKeys& ownKeys, X11KeyboardTap::Options options)
        : ownKeys_(ownKeys),
          options_(std::move(options)) {}
    Result<std::shared_ptr<KeyboardTap>, TapError> createTap(KeyboardTapListener& listener) override;

private:
    OwnKeys& ownKeys_;
    const X11KeyboardTap::Options options_;
};
} // namespace snipwren
