#include "hosts/virtual/VirtualDesktop.h"

#include "hosts/virtual/VirtualTap.h"

namespace snipwren {
namespace {
constexpr Rect screenFrame{0, 0, 1440, 900};
constexpr Rect screenVisible{0, 25, 1440, 875};
constexpr Rect fieldFrame{200, 150, 640, 320};

/// What the keys of the shortcuts type that a virtual field knows.
std::string_view shortcutLetter(int keyCode) {
    switch (keyCode) {
    case 0: return "a";
    case 6: return "z";
    case 8: return "c";
    case 9: return "v";
    case 13: return "w";
    case 32: return "u";
    case 40: return "k";
    default: return {};
    }
}
} // namespace

/// A handle to one field, as another program's accessibility gives it out.
class VirtualDesktop::Element final : public FieldElement {
public:
    Element(VirtualDesktop& desktop, FieldId id) : desktop_(desktop), id_(id) {}

    std::optional<FieldDescription> describe() override {
        return read<FieldDescription>([](VirtualField& field) { return field.describe(); });
    }
    std::optional<std::string> value() override {
        return read<std::string>([](VirtualField& field) { return field.shownText(); });
    }
    std::optional<Utf16Range> selectedRange() override {
        return read<Utf16Range>([](VirtualField& field) { return field.shownSelection(); });
    }
    std::optional<std::string> selectedText() override {
        return read<std::string>([](VirtualField& field) {
            const auto selected = field.selection();
            return toUtf8(std::u16string_view(toUtf16(field.text())).substr(selected.start, selected.length));
        });
    }
    EditOutcome replaceRange(const Utf16Range& range, const std::string& text) override {
        return desktop_.with(id_, [&](VirtualField& field) { return field.replaceRange(range, text); });
    }
    EditOutcome setValue(const std::string& value) override {
        return desktop_.with(id_, [&](VirtualField& field) { return field.setValue(value); });
    }
    std::optional<Rect> boundsOf(const Utf16Range& range) override {
        const std::lock_guard lock(desktop_.mutex_);
        VirtualField& field = *desktop_.fields_[id_].field;
        if (!field.answers()) return std::nullopt;
        return desktop_.caretBounds_ ? desktop_.caretBounds_ : std::optional(field.boundsOf(range));
    }
    std::optional<Rect> frame() override {
        return read<Rect>([](VirtualField& field) { return field.frame(); });
    }

private:
    template <class T, class F>
    std::optional<T> read(F function) {
        return desktop_.with(id_, [&](VirtualField& field) {
            return field.answers() ? std::optional<T>(function(field)) : std::nullopt;
        });
    }

    VirtualDesktop& desktop_;
    const FieldId id_;
};

VirtualDesktop::VirtualDesktop() = default;
VirtualDesktop::~VirtualDesktop() = default;

VirtualDesktop::FieldId VirtualDesktop::addField(const std::string& bundleId, VirtualFieldKind kind,
                                                 const std::string& label) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<const RunningApplication> application;
    for (const PlacedField& placed : fields_)
        if (placed.application->bundleId == bundleId) application = placed.application;
    if (!application) {
        RunningApplication made;
        made.bundleId = bundleId;
        made.name = bundleId;
        made.processId = static_cast<int>(fields_.size()) + 1000;
        application = std::make_shared<const RunningApplication>(std::move(made));
    }
    fields_.push_back({application, std::make_unique<VirtualField>(kind, label, "Window of " + bundleId, fieldFrame)});
    return fields_.size() - 1;
}

void VirtualDesktop::focus(FieldId field) {
    {
        const std::lock_guard lock(mutex_);
        focused_ = field;
    }
    notifyFocus();
}

void VirtualDesktop::notifyFocus() {
    std::unique_lock lock(mutex_);
    if (!focusObserver_ || !focused_) return;
    const FocusObserver observer = focusObserver_;
    const std::string bundleId = fields_[*focused_].application->bundleId;
    const FieldDescription description = fields_[*focused_].field->describe();
    lock.unlock();
    observer(bundleId, description);
}

std::string VirtualDesktop::text(FieldId field) const {
    const std::lock_guard lock(mutex_);
    return fields_[field].field->text();
}

std::shared_ptr<VirtualDesktop::Tap> VirtualDesktop::currentTapLocked() const {
    std::erase_if(taps_, [](const auto& tap) { return tap->isInvalidated(); });
    for (const auto& tap : taps_)
        if (tap->isEnabled()) return tap;
    return taps_.empty() ? nullptr : taps_.back();
}

void VirtualDesktop::press(const KeyEvent& event) {
    std::shared_ptr<Tap> tap;
    {
        const std::lock_guard lock(mutex_);
        tap = currentTapLocked();
    }
    bool swallow = false;
    if (tap && tap->isEnabled())
        tap->onTapThread([&](KeyboardTapListener& listener) { swallow = listener.handleKeyEvent(event); });
    if (!swallow) deliver(event);
}

void VirtualDesktop::deliver(const KeyEvent& event) {
    std::unique_lock lock(mutex_);
    if (keyWindow_ && keyWindow_->isKeyWindow()) {
        VirtualKeyWindow* window = keyWindow_;
        lock.unlock();
        window->keyDown(event);
    } else if (focused_) {
        fields_[*focused_].field->apply(event);
    }
}

void VirtualDesktop::pressCharacter(char32_t scalar) {
    KeyEvent event;
    std::string characters;
    switch (scalar) {
    case U'\n': event.keyCode = keycode::returnKey; break;
    case U'\b': event.keyCode = keycode::deleteKey; break;
    case U'\x1b': event.keyCode = keycode::escape; break;
    case U'\t': event.keyCode = keycode::tab; break;
    case U' ': event.keyCode = keycode::space; break;
    default: event.keyCode = 0; // Which letter key it was plays no part: the characters do.
    }
    appendUtf8(characters, scalar == U'\n' ? U'\r' : scalar);
    event.characters = characters;
    press(event);
}

void VirtualDesktop::type(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) pressCharacter(nextScalar(text, i));
}

void VirtualDesktop::click(std::optional<std::size_t> caret) {
    std::unique_lock lock(mutex_);
    if (caret && focused_) fields_[*focused_].field->setCaret(*caret);
    const auto tap = currentTapLocked();
    lock.unlock();
    if (tap && tap->isEnabled()) tap->onTapThread([](KeyboardTapListener& listener) { listener.handlePointerPress(); });
}

void VirtualDesktop::setKeyWindow(VirtualKeyWindow* window) {
    const std::lock_guard lock(mutex_);
    keyWindow_ = window;
}

void VirtualDesktop::setTrusted(bool trusted) {
    const std::lock_guard lock(mutex_);
    trusted_ = trusted;
}

void VirtualDesktop::setSecureInput(bool on) {
    const std::lock_guard lock(mutex_);
    secureInput_ = on;
}

void VirtualDesktop::setCaretBounds(std::optional<Rect> bounds) {
    const std::lock_guard lock(mutex_);
    caretBounds_ = bounds;
}

void VirtualDesktop::setTapCreationFails(bool fails) {
    const std::lock_guard lock(mutex_);
    tapCreationFails_ = fails;
}

void VirtualDesktop::setRefusesEnabling(bool refuses) { refusesEnabling_ = refuses; }

void VirtualDesktop::disableTapByTimeout() {
    std::unique_lock lock(mutex_);
    const auto tap = currentTapLocked();
    lock.unlock();
    if (!tap) return;
    tap->disable();
    tap->onTapThread([](KeyboardTapListener& listener) { listener.handleTimeout(); });
}

void VirtualDesktop::disableTapByUserInput() {
    std::unique_lock lock(mutex_);
    const auto tap = currentTapLocked();
    lock.unlock();
    if (!tap) return;
    tap->disable();
    tap->onTapThread([](KeyboardTapListener& listener) { listener.handleUserInputDisable(); });
}

bool VirtualDesktop::isTapListening() const {
    const std::lock_guard lock(mutex_);
    const auto tap = currentTapLocked();
    return tap && tap->isListening();
}

void VirtualDesktop::waitForTap() {
    std::unique_lock lock(mutex_);
    // Looked at again now and then: the tap tells of itself under its own lock.
    for (auto tap = currentTapLocked(); !tap || !tap->isListening(); tap = currentTapLocked())
        tapChanged_.wait_for(lock, std::chrono::milliseconds(1));
}

std::vector<std::string> VirtualDesktop::openedPaths() const {
    const std::lock_guard lock(mutex_);
    return openedPaths_;
}

std::vector<int> VirtualDesktop::syntheticKeys() const {
    const std::lock_guard lock(mutex_);
    return syntheticKeys_;
}

Result<std::shared_ptr<KeyboardTap>, TapError> VirtualDesktop::createTap(KeyboardTapListener& listener) {
    const std::lock_guard lock(mutex_);
    if (tapCreationFails_) return unexpected(TapError{"The virtual desktop was told to refuse the tap."});
    taps_.push_back(std::make_shared<Tap>(*this, listener));
    return std::static_pointer_cast<KeyboardTap>(taps_.back());
}

std::shared_ptr<FieldElement> VirtualDesktop::focusedElement() {
    const std::lock_guard lock(mutex_);
    if (!focused_ || fields_[*focused_].field->kind() == VirtualFieldKind::inaccessible) return nullptr;
    return std::make_shared<Element>(*this, *focused_);
}

void VirtualDesktop::setFocusObserver(FocusObserver observer) {
    {
        const std::lock_guard lock(mutex_);
        focusObserver_ = std::move(observer);
    }
    notifyFocus();
}

std::shared_ptr<const RunningApplication> VirtualDesktop::frontmostApplication() const {
    const std::lock_guard lock(mutex_);
    return focused_ ? fields_[*focused_].application : nullptr;
}

bool VirtualDesktop::isSecureInputEnabled() const {
    const std::lock_guard lock(mutex_);
    return secureInput_ || (focused_ && fields_[*focused_].field->kind() == VirtualFieldKind::password);
}

void VirtualDesktop::activate(const RunningApplication&) {
    // The overlay never takes the focus from the virtual host, so there is nothing to give back.
}

bool VirtualDesktop::open(const std::string& pathOrUrl) {
    const std::lock_guard lock(mutex_);
    openedPaths_.push_back(pathOrUrl);
    return true;
}

bool VirtualDesktop::openSettings(const std::string& section, const std::string& field) {
    return open("settings:" + section + (field.empty() ? "" : "/" + field));
}

bool VirtualDesktop::pressKey(int keyCode, const Modifiers& modifiers) {
    KeyEvent event;
    event.keyCode = keyCode;
    event.modifiers = modifiers;
    event.characters = modifiers.makeShortcut() ? shortcutLetter(keyCode) : keyCode == keycode::space ? " " : "";
    const std::lock_guard lock(mutex_);
    syntheticKeys_.push_back(keyCode);
    if (!focused_) return false;
    fields_[*focused_].field->apply(event);
    return true;
}

bool VirtualDesktop::typeText(const std::string& text) {
    const std::lock_guard lock(mutex_);
    if (!focused_) return false;
    fields_[*focused_].field->insert(text);
    return true;
}

std::vector<Screen> VirtualDesktop::screens() const { return {{screenFrame, screenVisible, 1}}; }

Point VirtualDesktop::mouseLocation() const { return {720, 450}; }

bool VirtualDesktop::isAccessibilityTrusted() const {
    const std::lock_guard lock(mutex_);
    return trusted_;
}
} // namespace snipwren
