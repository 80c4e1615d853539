#pragma once

#include <chrono>
#include <functional>

#include <QTimer>
#include <QWidget>

namespace snipwren {
/// Takes the whole keyboard for one of our override-redirect windows, over the toolkit's own connection, so that every
/// key comes to it from that moment on, in order, while the host keeps its focus and no window manager has a say. The
/// window may not be visible yet, and another program may hold the keyboard for an instant: it tries again.
class KeyboardGrab {
public:
    static constexpr std::chrono::milliseconds retryInterval{1};
    static constexpr int maxRetries = 1500;

    explicit KeyboardGrab(QWidget& window);
    ~KeyboardGrab();

    /// `finished` gets whether the keyboard is ours.
    void take(std::function<void(bool)> finished);
    void release();
    bool isHeld() const { return held_; }

private:
    void attempt();

    QWidget& window_;
    QTimer retry_;
    std::function<void(bool)> finished_;
    int retries_ = 0;
    bool held_ = false;
};
} // namespace snipwren
