#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

#include "platform/linux/FileDescriptor.h"

namespace snipwren {
/// The parent's end of the guard, a small process of its own: when this whole program is stopped (a debugger, Ctrl+Z) and
/// keys are pressed, which it may be holding back, the guard has the X server drop the tap's connection. That frees the
/// keyboard; the tap reconnects when the program goes on. The guard sleeps while no key is pressed and ends with us.
class TapGuard {
public:
    TapGuard() = default;
    ~TapGuard();
    TapGuard(const TapGuard&) = delete;
    TapGuard& operator=(const TapGuard&) = delete;

    /// False when the program cannot be started; the tap works without it.
    bool start(const std::string& program);
    bool isRunning() const { return socket_.get() >= 0; }
    /// A resource of the connection to drop.
    void watch(std::uint32_t window);

private:
    FileDescriptor socket_;
    pid_t process_ = -1;
};
} // namespace snipwren
