#pragma once

#include <atomic>

namespace snipwren {
/// Whether a password is being typed, as far as anybody here can tell. Each watcher sets its own sign; any one counts.
/// Thread safe, lock-free: it is read on every key.
class SecureInputState {
public:
    enum class Sign : unsigned {
        /// The focused field is a password field, says accessibility.
        passwordField = 1,
        /// Another program holds the keyboard (a passphrase prompt, a locker).
        foreignGrab = 2,
        /// The application with the keyboard is one that asks for passwords and shows no field to accessibility.
        secretPrompt = 4,
    };
    void set(Sign sign, bool on) {
        if (on) {
            signs_.fetch_or(static_cast<unsigned>(sign));
        } else {
            signs_.fetch_and(~static_cast<unsigned>(sign));
        }
    }
    bool isSet(Sign sign) const { return (signs_.load() & static_cast<unsigned>(sign)) != 0; }
    bool isSecure() const { return signs_.load() != 0; }

private:
    std::atomic<unsigned> signs_ = 0;
};
} // namespace snipwren
