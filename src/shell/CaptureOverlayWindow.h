#pragma once

#include <atomic>

#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>

#include "capture/CaptureState.h"
#include "platform/CaptureOverlay.h"
#include "shell/Appearance.h"
#include "shell/KeyboardGrab.h"
#include "shell/OutsideWatcher.h"

namespace snipwren {
/// The overlay in which a capture is typed: a small window at the caret that takes the keyboard without taking the focus
/// from the host. It shows the capture's published state and hands every change and key to the listener. It is made once
/// and shown again for each capture. Main thread, except hasKeyboard.
class CaptureOverlayWindow final : public QFrame, public CaptureOverlay, public OwnWindowKeyboardGuard {
public:
    static constexpr int maxVisibleChoices = 6;
    static constexpr int width = 440;

    explicit CaptureOverlayWindow(const Appearance& appearance);

    /// None ends it. It comes after its overlay into being.
    void setListener(CaptureOverlayListener* listener) { listener_ = listener; }
    /// Shows what has changed; called after every change of the state, also before present().
    void update(const CaptureState& state);
    void setAppearance(const Appearance& appearance);

    void present(const Rect& anchor) override;
    void dismiss() override;
    bool hasKeyboard() const override { return hasKeyboard_; }
    bool isOwnWindowKey() const override { return hasKeyboard_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool handleKey(int key, Qt::KeyboardModifiers modifiers);
    void showChoices(const CaptureState& state);
    void showMessages(const CaptureState& state);
    void place();
    void gotKeyboard(bool taken);
    void tellBecameKey();

    CaptureOverlayListener* listener_ = nullptr;
    QLabel title_;
    QLabel subtitle_;
    QLineEdit field_;
    QListWidget choices_;
    QLabel preview_;
    QLabel fault_;
    QLabel hint_;
    KeyboardGrab grab_;
    OutsideWatcher outside_;
    Rect anchor_;
    /// A capture is under way; between captures, and while the text is being set, changes are not typing.
    bool open_ = false;
    bool isSettingText_ = false;
    bool isPresenting_ = false;
    /// The keyboard could not be taken; the focus may still come.
    bool waitsForFocus_ = false;
    std::atomic<bool> hasKeyboard_ = false;
};
} // namespace snipwren
