#pragma once

#include "platform/LoopbackListeners.h"

namespace snipwren {
/// Reads the kernel's table of sockets in /proc/net/tcp.
class ProcLoopbackListeners final : public LoopbackListeners {
public:
    unsigned ownUser() const override;
    std::optional<Listener> listenerOn(unsigned short port) override;
};
} // namespace snipwren
