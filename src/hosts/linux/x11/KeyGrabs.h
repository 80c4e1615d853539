#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <vector>

#include "hosts/linux/x11/XkbKeyboard.h"

namespace snipwren {
/// The passive grabs of one connection on the root window: each delivers its key to us alone, frozen, until we answer.
/// By XInput 2 and for the master keyboard by name: a core grab loses the layout group when it gives a key back, and a grab
/// for all masters never gives it back. Requests are only queued; whoever calls flushes. One thread.
class KeyGrabs {
public:
    enum class Set { slash, terminators, chords };

    KeyGrabs(xcb_connection_t* connection, std::uint16_t masterDevice);

    /// What the set consists of from now on; replaces what is installed of it.
    void setCombinations(Set set, std::vector<KeyCombination> combinations);
    void setModifierKeys(const std::bitset<256>& keys) { modifierKeys_ = keys; }
    void install(Set set, bool on);
    /// Takes every key; waits for the server's answer, since a window manager may refuse it.
    void installEveryKey(bool on, std::uint8_t lockedModifiers);
    bool everyKeyInstalled() const { return everyKey_; }
    bool anyInstalled() const { return everyKey_ || !held_.empty(); }
    void removeAll();
    /// The server took them all back.
    void forgetAll();

    /// Whether a key that the server handled after `sequence` requests of ours is delivered through a grab.
    bool expects(std::uint8_t keycode, std::uint8_t modifiers, std::uint32_t sequence) const;

    /// Queues the requests that take every grab away and let a frozen key go on to its application. Usable from another
    /// thread, while this object's own is stuck.
    static void releaseEverything(xcb_connection_t* connection, std::uint16_t masterDevice);

private:
    struct Held {
        int sets = 0;
        std::uint32_t sequence = 0;
    };
    std::uint32_t grab(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers);
    void ungrab(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers);
    bool grabNow(std::uint8_t keycode, const std::vector<std::uint32_t>& modifiers);
    void grabKeyByKey(std::uint8_t lockedModifiers);
    void add(const std::vector<KeyCombination>& combinations);
    void drop(const std::vector<KeyCombination>& combinations);

    xcb_connection_t* connection_;
    std::uint16_t device_;
    std::bitset<256> modifierKeys_;
    std::array<std::vector<KeyCombination>, 3> combinations_;
    std::array<bool, 3> installed_{};
    std::map<KeyCombination, Held> held_;
    bool everyKey_ = false;
    bool keyByKey_ = false;
    std::uint32_t everyKeySequence_ = 0;
};
} // namespace snipwren
