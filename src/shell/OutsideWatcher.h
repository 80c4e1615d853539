#pragma once

#include <functional>
#include <memory>

#include <QRect>

namespace snipwren {
/// Notices, while our overlay is open, what must close it: a press of a mouse button outside of it, and a locker or other
/// full-screen window that covers everything and needs the keyboard; also that somebody took it from the screen. Uses a connection of its own; main thread.
class OutsideWatcher {
public:
    OutsideWatcher();
    ~OutsideWatcher();

    /// `window` is the overlay's X window.
    void start(unsigned window, std::function<void()> happened);
    void stop();

private:
    struct State;
    std::unique_ptr<State> state_;
};
} // namespace snipwren
