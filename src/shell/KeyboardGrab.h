#pragma once

#include <chrono>
#include <functional>

#include <QKeyEvent>
#include <QTimer>
#include <QWidget>

namespace snipwren {
/// Takes the whole keyboard for one of our override-redirect windows, over the toolkit's own connection, so that every
/// key comes to it from that moment on, in order, while the host keeps its focus and no window manager has a say. The
/// window may not be visible yet, and another program may hold the keyboard for an instant: it tries again. Main thread.
class KeyboardGrab {
public:
    static constexpr std::chrono::milliseconds retryInterval{1};
    static constexpr int maxRetries = 1500;

    explicit KeyboardGrab(QWidget& window);
    ~KeyboardGrab();

    /// `finished` gets whether the keyboard is ours.
    void take(std::function<void(bool)> finished);
    /// Lets go at once; `returned` is called when the window has handled every key that it still got, which it knows by
    /// handing its key presses to takesLastKey().
    void release(std::function<void()> returned);
    /// Whether this is no press but the end of what was pressed.
    bool takesLastKey(const QKeyEvent& press);
    bool isHeld() const { return held_; }

private:
    void attempt();
    /// Ends holding or trying.
    void letGo();

    QWidget& window_;
    QTimer retry_;
    std::function<void(bool)> finished_;
    std::function<void()> returned_;
    int retries_ = 0;
    bool held_ = false;
};
} // namespace snipwren
