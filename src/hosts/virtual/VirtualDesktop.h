#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "hosts/virtual/VirtualField.h"
#include "platform/FocusedField.h"
#include "platform/Geometry.h"
#include "platform/KeyboardTap.h"
#include "platform/Workspace.h"

namespace snipwren {
/// Where key presses go while one of our own windows has the keyboard.
class VirtualKeyWindow {
public:
    virtual ~VirtualKeyWindow() = default;
    virtual bool isKeyWindow() const = 0;
    virtual void keyDown(const KeyEvent& event) = 0;
};

/// A desktop in memory: applications with windows and text fields, one keyboard, screens. Keys pressed on it go through
/// the installed tap, on the tap's own thread, and then to the window that has the keyboard, as they do on a real one.
/// `snipwren type` runs on it, and every test of a whole capture. Thread safe (one lock).
class VirtualDesktop final : public KeyboardTapProvider,
                             public FocusedField,
                             public Workspace,
                             public SyntheticKeyboard,
                             public ScreenGeometry,
                             public Permissions {
public:
    using FieldId = std::size_t;

    VirtualDesktop();
    ~VirtualDesktop() override;

    /// A new field in a new window of the application, which is made when there is none of that identifier.
    FieldId addField(const std::string& bundleId, VirtualFieldKind kind, const std::string& label = "Text");
    /// Gives the keyboard to the field, its window and its application.
    void focus(FieldId field);
    /// Access to one field under the desktop's lock.
    template <class F>
    auto with(FieldId field, F&& function) {
        const std::lock_guard lock(mutex_);
        return function(*fields_[field].field);
    }
    std::string text(FieldId field) const;

    /// One key down, through the tap. Waits for the tap's verdict, as a keyboard driver does.
    void press(const KeyEvent& event);
    /// A character as its key: newline is Return, "\b" Delete, "\x1b" Escape, others by what they type.
    void pressCharacter(char32_t scalar);
    void type(std::string_view text);
    /// A press of the pointer, which may put the caret (in UTF-16 units) elsewhere in the focused field.
    void click(std::optional<std::size_t> caret = std::nullopt);

    void setKeyWindow(VirtualKeyWindow* window);
    void setTrusted(bool trusted);
    /// Secure input without a field, as a login prompt has it.
    void setSecureInput(bool on);
    /// An input method that makes text of its own is at work.
    void setInputMethod(bool on) { inputMethod_ = on; }
    void setCaretBounds(std::optional<Rect> bounds);
    void setTapCreationFails(bool fails);
    /// The system disables the tap, for being slow or for its own reasons, and tells the listener on the tap's thread.
    void disableTapByTimeout();
    void disableTapByUserInput();
    void setRefusesEnabling(bool refuses);
    /// True when a tap is installed and enabled: keys pressed from now on pass through it.
    bool isTapListening() const;
    /// Waits until a tap listens.
    void waitForTap();

    std::vector<std::string> openedPaths() const;
    std::vector<int> syntheticKeys() const;

    Result<std::shared_ptr<KeyboardTap>, TapError> createTap(KeyboardTapListener& listener) override;
    std::shared_ptr<FieldElement> focusedElement() override;
    void setFocusObserver(FocusObserver observer) override;
    std::shared_ptr<const RunningApplication> frontmostApplication() const override;
    bool isSecureInputEnabled() const override;
    bool mayInputMethodEdit() const override { return inputMethod_; }
    void activate(const RunningApplication& application) override;
    bool open(const std::string& pathOrUrl) override;
    bool openSettings(const std::string& section, const std::string& field) override;
    bool pressKey(int keyCode, const Modifiers& modifiers) override;
    bool typeText(const std::string& text) override;
    std::vector<Screen> screens() const override;
    Point mouseLocation() const override;
    bool isAccessibilityTrusted() const override;

private:
    class Tap;
    class Element;
    struct PlacedField {
        std::shared_ptr<const RunningApplication> application;
        std::unique_ptr<VirtualField> field;
    };
    void deliver(const KeyEvent& event);
    void notifyFocus();
    /// The enabled one, else the newest; may be none. Under the lock.
    std::shared_ptr<Tap> currentTapLocked() const;

    mutable std::mutex mutex_;
    std::condition_variable tapChanged_;
    std::vector<PlacedField> fields_;
    std::optional<FieldId> focused_;
    VirtualKeyWindow* keyWindow_ = nullptr;
    /// Every tap that was made and not invalidated: an outdated one may come into being after a newer one.
    mutable std::vector<std::shared_ptr<Tap>> taps_;
    FocusObserver focusObserver_;
    std::optional<Rect> caretBounds_;
    bool trusted_ = true;
    bool secureInput_ = false;
    bool tapCreationFails_ = false;
    std::atomic<bool> refusesEnabling_ = false;
    std::atomic<bool> inputMethod_ = false;
    std::vector<std::string> openedPaths_;
    std::vector<int> syntheticKeys_;
};
} // namespace snipwren
