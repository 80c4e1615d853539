#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

#include "hosts/linux/FileDescriptor.h"

namespace snipwren {
/// The parent's end of the guard, a small process of its own: when this whole program is stopped (a debugger, Ctrl+Z) and
/// keys are pressed, which it may be holding back, the guard answers them in our place over the tap's own connection, has
/// the X server drop that connection and takes an open overlay from the screen. That frees the keyboard, and no key is
/// lost; the tap reconnects when the program goes on. The guard sleeps while no key is pressed and ends with us.
class TapGuard {
public:
    /// What the guard is sent, with the descriptor of the connection.
    struct Watched {
        /// A window of the connection, by which to drop it.
        std::uint32_t window = 0;
        std::uint16_t masterDevice = 0;
        std::uint8_t inputOpcode = 0;
    };
    TapGuard() = default;
    ~TapGuard();
    TapGuard(const TapGuard&) = delete;
    TapGuard& operator=(const TapGuard&) = delete;

    /// False when the program cannot be started; the tap works without it.
    bool start(const std::string& program);
    bool isRunning() const { return socket_.get() >= 0; }
    void watch(const Watched& watched, int connectionDescriptor);

private:
    FileDescriptor socket_;
    pid_t process_ = -1;
};
} // namespace snipwren
