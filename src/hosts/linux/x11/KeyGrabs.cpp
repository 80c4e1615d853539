#include "hosts/linux/x11/KeyGrabs.h"

#include <utility>

#include <xcb/xcbext.h>
#include <xcb/xinput.h>

namespace snipwren {
namespace {
constexpr std::uint32_t anyModifier = 1U << 31;
constexpr std::uint8_t anyKeycode = 0;
// The raw events too: while a grab is active, its owner gets them only through it.
constexpr std::uint32_t grabEvents = XCB_INPUT_XI_EVENT_MASK_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_KEY_RELEASE
                                     | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;

template <class Function>
void byKeycode(const std::vector<KeyCombination>& combinations, Function function) {
    for (std::size_t i = 0; i < combinations.size();) {
        const std::uint8_t keycode = combinations[i].keycode;
        std::vector<std::uint32_t> modifiers;
        for (; i < combinations.size() && combinations[i].keycode == keycode; ++i)
            modifiers.push_back(combinations[i].modifiers);
        function(keycode, modifiers);
    }
}

xcb_input_xi_passive_grab_device_cookie_t sendGrab(xcb_connection_t* connection, std::uint16_t device,
                                                   std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
    return xcb_input_xi_passive_grab_device(connection, XCB_CURRENT_TIME, rootWindow(connection), XCB_NONE, keycode,
                                            device, static_cast<std::uint16_t>(modifiers.size()), 1,
                                            XCB_INPUT_GRAB_TYPE_KEYCODE, XCB_INPUT_GRAB_MODE_22_SYNC,
                                            XCB_INPUT_GRAB_MODE_22_ASYNC, 0, &grabEvents, modifiers.data());
}
} // namespace

KeyGrabs::KeyGrabs(xcb_connection_t* connection, std::uint16_t masterDevice)
    : connection_(connection),
      device_(masterDevice) {}

std::uint32_t KeyGrabs::grab(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
    const auto cookie = sendGrab(connection_, device_, keycode, modifiers);
    // A combination that somebody else holds is refused; then its keys are seen but cannot be held back.
    xcb_discard_reply(connection_, cookie.sequence);
    return cookie.sequence;
}

bool KeyGrabs::grabNow(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
    const XcbOwned<xcb_input_xi_passive_grab_device_reply_t> reply(xcb_input_xi_passive_grab_device_reply(
        connection_, sendGrab(connection_, device_, keycode, modifiers), nullptr));
    return reply && reply->num_modifiers == 0;
}

void KeyGrabs::ungrab(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
    const auto cookie = xcb_input_xi_passive_ungrab_device_checked(
        connection_, rootWindow(connection_), keycode, device_, static_cast<std::uint16_t>(modifiers.size()),
        XCB_INPUT_GRAB_TYPE_KEYCODE, modifiers.data());
    xcb_discard_reply(connection_, cookie.sequence);
}

void KeyGrabs::add(const std::vector<KeyCombination>& combinations) {
    byKeycode(combinations, [&](std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
        std::vector<std::uint32_t> fresh;
        for (const std::uint32_t mask : modifiers) {
            if (held_[{keycode, static_cast<std::uint8_t>(mask)}].sets++ == 0) fresh.push_back(mask);
        }
        if (fresh.empty()) return;
        const std::uint32_t sequence = grab(keycode, fresh);
        for (const std::uint32_t mask : fresh) held_[{keycode, static_cast<std::uint8_t>(mask)}].sequence = sequence;
    });
}

void KeyGrabs::drop(const std::vector<KeyCombination>& combinations) {
    byKeycode(combinations, [&](std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers) {
        std::vector<std::uint32_t> stale;
        for (const std::uint32_t mask : modifiers) {
            const auto found = held_.find({keycode, static_cast<std::uint8_t>(mask)});
            if (found == held_.end() || --found->second.sets > 0) continue;
            held_.erase(found);
            stale.push_back(mask);
        }
        if (!stale.empty()) ungrab(keycode, stale);
    });
}

void KeyGrabs::setCombinations(Set set, std::vector<KeyCombination> combinations) {
    const auto index = static_cast<std::size_t>(set);
    if (combinations_[index] == combinations) return;
    const bool on = installed_[index];
    install(set, false);
    combinations_[index] = std::move(combinations);
    install(set, on);
}

void KeyGrabs::install(Set set, bool on) {
    const auto index = static_cast<std::size_t>(set);
    if (installed_[index] == on) return;
    installed_[index] = on;
    // Taking a combination out of a grab of every key would leave a hole in it.
    if (everyKey_) return;
    on ? add(combinations_[index]) : drop(combinations_[index]);
}

void KeyGrabs::installEveryKey(bool on, std::uint8_t lockedModifiers) {
    if (everyKey_ == on) return;
    everyKey_ = on;
    if (on) {
        keyByKey_ = !grabNow(anyKeycode, {anyModifier});
        if (keyByKey_) grabKeyByKey(lockedModifiers);
        everyKeySequence_ = xcb_no_operation(connection_).sequence;
        return;
    }
    if (keyByKey_) {
        for (int keycode = 8; keycode < 256; ++keycode) ungrab(static_cast<std::uint8_t>(keycode), {anyModifier});
    } else {
        ungrab(anyKeycode, {anyModifier});
    }
    // That took the other sets along.
    held_.clear();
    for (std::size_t i = 0; i < installed_.size(); ++i) {
        if (installed_[i]) add(combinations_[i]);
    }
}

void KeyGrabs::grabKeyByKey(std::uint8_t lockedModifiers) {
    std::vector<std::pair<std::uint8_t, xcb_input_xi_passive_grab_device_cookie_t>> sent;
    const std::vector<std::uint32_t> any{anyModifier};
    for (int keycode = 8; keycode < 256; ++keycode) {
        if (modifierKeys_.test(static_cast<std::size_t>(keycode))) continue;
        const auto key = static_cast<std::uint8_t>(keycode);
        sent.emplace_back(key, sendGrab(connection_, device_, key, any));
    }
    for (const auto& [keycode, cookie] : sent) {
        const XcbOwned<xcb_input_xi_passive_grab_device_reply_t> reply(
            xcb_input_xi_passive_grab_device_reply(connection_, cookie, nullptr));
        if (reply && reply->num_modifiers == 0) continue;
        // Somebody holds this key with some modifier: at least take it as text is typed with it.
        grab(keycode, {lockedModifiers, lockedModifiers | 1U});
    }
}

void KeyGrabs::removeAll() {
    ungrab(anyKeycode, {anyModifier});
    forgetAll();
}

void KeyGrabs::forgetAll() {
    held_.clear();
    installed_ = {};
    everyKey_ = false;
}

bool KeyGrabs::expects(std::uint8_t keycode, std::uint8_t modifiers, std::uint32_t sequence) const {
    // Sequence numbers wrap around; the difference tells which is later.
    const auto reached = [sequence](std::uint32_t request) {
        return static_cast<std::int32_t>(sequence - request) >= 0;
    };
    if (everyKey_ && reached(everyKeySequence_) && !(keyByKey_ && modifierKeys_.test(keycode))) return true;
    const auto found = held_.find({keycode, modifiers});
    return found != held_.end() && reached(found->second.sequence);
}

void KeyGrabs::releaseEverything(xcb_connection_t* connection, std::uint16_t masterDevice) {
    const std::uint32_t any = anyModifier;
    xcb_discard_reply(connection,
                      xcb_input_xi_passive_ungrab_device_checked(connection, rootWindow(connection), anyKeycode,
                                                                 masterDevice, 1, XCB_INPUT_GRAB_TYPE_KEYCODE, &any)
                          .sequence);
    xcb_discard_reply(connection, xcb_input_xi_allow_events_checked(connection, XCB_CURRENT_TIME, masterDevice,
                                                                    XCB_INPUT_EVENT_MODE_REPLAY_DEVICE, 0, 0)
                                      .sequence);
    xcb_flush(connection);
}
} // namespace snipwren
