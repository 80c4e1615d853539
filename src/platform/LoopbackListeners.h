#pragma once

#include <cstdint>
#include <optional>

namespace snipwren {
/// Who listens on a port of the loopback address, asked before a secret is sent there. Any thread.
class LoopbackListeners {
public:
    struct Listener {
        /// The user whose program it is.
        unsigned user = 0;
        /// Tells this socket from a later one on the same port.
        std::uint64_t socket = 0;
        friend bool operator==(const Listener&, const Listener&) = default;
    };

    virtual ~LoopbackListeners() = default;
    virtual unsigned ownUser() const = 0;
    /// None when nobody listens on exactly 127.0.0.1, or the system does not say.
    virtual std::optional<Listener> listenerOn(unsigned short port) = 0;
};
} // namespace snipwren
