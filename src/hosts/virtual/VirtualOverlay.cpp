#include "hosts/virtual/VirtualOverlay.h"

namespace snipwren {
void VirtualOverlay::present(const Rect& anchor) {
    anchor_ = anchor;
    visible_ = true;
    if (takesKeyboardAtOnce_) hasKeyboard_ = true;
}

void VirtualOverlay::takeKeyboard() {
    if (!visible_) return;
    hasKeyboard_ = true;
    if (listener_) listener_->overlayDidBecomeKey();
}

void VirtualOverlay::dismiss() {
    visible_ = false;
    hasKeyboard_ = false;
    // Behind the keys that are on their way.
    mainQueue_.async([this] {
        if (listener_) listener_->overlayDidReturnKeyboard();
    });
}

void VirtualOverlay::keyDown(const KeyEvent& event) {
    mainQueue_.async(
        [this, key = KeptKey{event.keyCode, std::string(event.characters), event.modifiers, event.isComposing}] {
            if (listener_) listener_->handleOverlayKey(key);
        });
}
} // namespace snipwren
