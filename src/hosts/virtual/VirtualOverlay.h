#pragma once

#include <atomic>
#include <functional>
#include <optional>

#include "base/SerialQueue.h"
#include "hosts/virtual/VirtualDesktop.h"
#include "platform/CaptureOverlay.h"

namespace snipwren {
/// The overlay of the virtual desktop: a text field without a window. Key presses that reach it go to the listener on the
/// main queue. It takes the keyboard at once, or when told to, as a slow window manager gives it.
class VirtualOverlay final : public CaptureOverlay, public OwnWindowKeyboardGuard, public VirtualKeyWindow {
public:
    explicit VirtualOverlay(SerialQueue& mainQueue) : mainQueue_(mainQueue) {}

    /// The listener comes after its overlay into being.
    void setListener(CaptureOverlayListener* listener) { listener_ = listener; }
    void setTakesKeyboardAtOnce(bool atOnce) { takesKeyboardAtOnce_ = atOnce; }
    void takeKeyboard();
    /// Where it opened last.
    std::optional<Rect> anchor() const { return anchor_; }
    bool isVisible() const { return visible_; }

    void present(const Rect& anchor) override;
    void dismiss() override;
    bool hasKeyboard() const override { return hasKeyboard_; }
    bool isOwnWindowKey() const override { return hasKeyboard_; }
    bool isKeyWindow() const override { return hasKeyboard_; }
    void keyDown(const KeyEvent& event) override;

private:
    SerialQueue& mainQueue_;
    CaptureOverlayListener* listener_ = nullptr;
    bool takesKeyboardAtOnce_ = true;
    bool visible_ = false;
    std::optional<Rect> anchor_;
    std::atomic<bool> hasKeyboard_ = false;
};
} // namespace snipwren
