// What becomes of one key. Raw events, state changes and grabbed keys arrive in the order of the server; a press of a
// grabbed key waits in the queue until its grabbed event is here, so that text and state are always those of that key.
#include <algorithm>

#include <xcb/xcbext.h>
#include <xcb/xinput.h>
// The header names a member "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "hosts/linux/x11/X11KeyboardTap.h"

namespace snipwren {
namespace {
std::uint8_t keycodeOf(std::uint32_t detail) { return static_cast<std::uint8_t>(detail); }
} // namespace

void X11KeyboardTap::handle(XcbOwned<xcb_generic_event_t> event) {
    const int type = event->response_type & 0x7f;
    if (type == link_->keyboard->eventBase()) return handleKeyboardEvent(std::move(event));
    if (type != XCB_GE_GENERIC) return;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(*event);
    if (generic.extension != link_->inputOpcode) return;
    switch (generic.event_type) {
    case XCB_INPUT_RAW_KEY_PRESS:
    case XCB_INPUT_RAW_KEY_RELEASE: handleRaw(*event); break;
    case XCB_INPUT_RAW_BUTTON_PRESS: handleButton(*event); break;
    case XCB_INPUT_KEY_PRESS: handleGrabbed(*event); break;
    default: break; // The release of a key that was swallowed.
    }
}

void X11KeyboardTap::handleRaw(const xcb_generic_event_t& event) {
    if (!applied_) return;
    const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
    Item item;
    item.kind = raw.event_type == XCB_INPUT_RAW_KEY_PRESS ? Item::Kind::press : Item::Kind::release;
    item.keycode = keycodeOf(raw.detail);
    item.time = raw.time;
    item.source = raw.sourceid;
    item.sequence = raw.full_sequence;
    pending_.push_back(std::move(item));
    drain();
}

void X11KeyboardTap::handleButton(const xcb_generic_event_t& event) {
    constexpr std::uint32_t firstOfWheel = 4;
    constexpr std::uint32_t lastOfWheel = 7;
    const auto& raw = reinterpret_cast<const xcb_input_raw_button_press_event_t&>(event);
    if (!applied_ || (raw.detail >= firstOfWheel && raw.detail <= lastOfWheel)) return;
    Item item;
    item.kind = Item::Kind::button;
    pending_.push_back(std::move(item));
    drain();
}

void X11KeyboardTap::handleKeyboardEvent(XcbOwned<xcb_generic_event_t> event) {
    const std::uint8_t kind = event->pad0; // XKB's own type stands in the second byte.
    if (kind == XCB_XKB_STATE_NOTIFY) {
        Item item;
        item.kind = Item::Kind::state;
        item.state = std::move(event);
        if (pending_.empty()) return apply(item);
        pending_.push_back(std::move(item));
        return;
    }
    if (!link_->keyboard->reload()) return;
    link_->recomputeGrabs();
    if (applied_) loadChords();
}

void X11KeyboardTap::drain() {
    while (applied_ && !pending_.empty()) {
        const Item& first = pending_.front();
        if (first.kind == Item::Kind::press
            && link_->grabs->expects(first.keycode, link_->keyboard->modifiers(), first.sequence)) {
            if (!barrier_) barrier_ = {xcb_get_input_focus(connection()).sequence, false};
            return;
        }
        const Item item = std::move(pending_.front());
        pending_.pop_front();
        apply(item);
    }
}

void X11KeyboardTap::apply(const Item& item) {
    switch (item.kind) {
    case Item::Kind::press: observe(item); break;
    case Item::Kind::release: noteHeldKey(item.keycode, item.time, false); break;
    case Item::Kind::state:
        link_->keyboard->update(reinterpret_cast<const xcb_xkb_state_notify_event_t&>(*item.state));
        break;
    case Item::Kind::button:
        listener_.handlePointerPress();
        rearm();
        break;
    }
}

void X11KeyboardTap::applyPassedOver(const Item& item) {
    if (item.kind != Item::Kind::press
        || !link_->grabs->expects(item.keycode, link_->keyboard->modifiers(), item.sequence))
        return apply(item);
    // Grabbed, but a later key came first: another program had the keyboard then, and got it.
    missedKeys();
}

void X11KeyboardTap::observe(const Item& item) {
    if (item.source == link_->postingDevice && ownKeys_.consume(item.keycode)) return;
    noteHeldKey(item.keycode, item.time, true);
    const XkbKeyboard::Press press = link_->keyboard->press(item.keycode);
    if (press.isModifier) return;
    lastObserved_ = {item.keycode, 0};
    lastObservedTime_ = item.time;
    const std::optional<bool> verdict = ask(press, false, true);
    if (verdict) rearm();
}

void X11KeyboardTap::handleGrabbed(const xcb_generic_event_t& generic) {
    const auto& event = reinterpret_cast<const xcb_input_key_press_event_t&>(generic);
    const std::uint8_t keycode = keycodeOf(event.detail);
    if (!applied_) return answer(generic, false);
    const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const Item& item) {
        return item.kind == Item::Kind::press && item.keycode == keycode && item.time == event.time;
    });
    const bool isRepeat = (event.flags & XCB_INPUT_KEY_EVENT_FLAGS_KEY_REPEAT) != 0;
    if (found != pending_.end()) {
        dropBarrier();
        for (auto before = found - pending_.begin(); before > 0 && applied_; --before) {
            const Item item = std::move(pending_.front());
            pending_.pop_front();
            applyPassedOver(item);
        }
        if (!applied_) return answer(generic, false);
        pending_.pop_front();
        if (event.sourceid == link_->postingDevice && ownKeys_.consume(keycode)) {
            answer(generic, false);
            return drain();
        }
        noteHeldKey(keycode, event.time, true);
    } else if (!isRepeat && lastObserved_.keycode == keycode && lastObservedTime_ == event.time) {
        return answer(generic, false); // Told already, by its raw event.
    }
    if (isRepeat && swallowedKeycode_ == keycode) return answer(generic, true); // Still the same press.
    const XkbKeyboard::Press press = link_->keyboard->press(keycode);
    if (press.isModifier) {
        answer(generic, false);
        return drain();
    }
    const std::optional<bool> verdict = ask(press, isRepeat, false);
    if (!verdict) return; // The watchdog gave the key to its application.
    swallowedKeycode_ = *verdict ? keycode : 0;
    // The grabs for the next keys have to stand before this key is answered and those are let go.
    rearm();
    answer(generic, *verdict);
    drain();
}

void X11KeyboardTap::answer(const xcb_generic_event_t& generic, bool swallow) {
    const auto& event = reinterpret_cast<const xcb_input_key_press_event_t&>(generic);
    // One request per key: a second one would hit the next frozen key.
    if (swallow) {
        xcb_input_xi_ungrab_device(connection(), event.time, event.deviceid);
    } else {
        xcb_input_xi_allow_events(connection(), event.time, event.deviceid, XCB_INPUT_EVENT_MODE_REPLAY_DEVICE, 0, 0);
    }
    xcb_flush(connection());
}

std::optional<bool> X11KeyboardTap::ask(const XkbKeyboard::Press& press, bool isRepeat, bool reachedHost) {
    KeyEvent event;
    event.keyCode = press.keyCode;
    event.characters = press.characters;
    event.modifiers = press.modifiers;
    event.isRepeat = isRepeat;
    event.isComposing = press.isComposing;
    event.reachedHost = reachedHost;
    watchdog_.begin();
    const bool swallow = listener_.handleKeyEvent(event);
    if (!watchdog_.end()) {
        timedOut();
        return std::nullopt;
    }
    return swallow;
}

void X11KeyboardTap::timedOut() {
    link_->grabs->forgetAll();
    pending_.clear();
    dropBarrier();
    ownKeys_.setWatched(false);
    applied_ = false;
    enabled_ = false;
    interest_ = KeyInterest::nothing;
    listener_.handleTimeout();
}

void X11KeyboardTap::rearm() {
    if (!applied_) return;
    const KeyInterest interest = listener_.keyInterest();
    const bool everything = interest == KeyInterest::everything;
    if (everything && interest_ != KeyInterest::everything) everyKeySince_ = std::chrono::steady_clock::now();
    interest_ = interest;
    KeyGrabs& grabs = *link_->grabs;
    grabs.install(KeyGrabs::Set::slash, options_.grabEverySlash || interest == KeyInterest::nextSlash);
    grabs.install(KeyGrabs::Set::terminators, interest == KeyInterest::terminators);
    grabs.installEveryKey(everything, link_->keyboard->lockedModifiers());
    xcb_flush(connection());
}

void X11KeyboardTap::dropBarrier() {
    if (barrier_ && !barrier_->replied) xcb_discard_reply(connection(), barrier_->sequence);
    barrier_.reset();
}

void X11KeyboardTap::checkBarrier() {
    if (!barrier_) return;
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    if (!xcb_poll_for_reply(connection(), barrier_->sequence, &reply, &error)) return;
    const XcbOwned<void> ownedReply(reply);
    const XcbOwned<xcb_generic_error_t> ownedError(error);
    const unsigned sequence = barrier_->sequence;
    barrier_->replied = true;
    // Everything the server sent before the reply has been read in.
    while (XcbOwned<xcb_generic_event_t> event{xcb_poll_for_queued_event(connection())}) handle(std::move(event));
    if (!barrier_ || barrier_->sequence != sequence) return;
    barrier_.reset();
    if (pending_.empty()) return;
    // The key is grabbed and yet went elsewhere: another program has the keyboard and reads what is typed.
    pending_.pop_front();
    missedKeys();
    drain();
}

void X11KeyboardTap::noteHeldKey(std::uint8_t keycode, std::uint32_t time, bool pressed) {
    // Raw events tell of no repetition, so a key held long enough has typed nobody knows how often.
    const std::uint32_t delay = link_->keyboard->repeatDelay();
    if (heldKey_ && (pressed || heldKey_->keycode == keycode)) {
        if (delay > 0 && time - heldKey_->since >= delay) missedKeys();
        if (!pressed) heldKey_.reset();
    }
    if (pressed && link_->keyboard->repeats(keycode)) heldKey_ = {keycode, time};
}

void X11KeyboardTap::missedKeys() {
    link_->keyboard->forgetComposing();
    listener_.handleMissedKeys();
    rearm();
}
} // namespace snipwren
