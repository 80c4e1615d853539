#include "hosts/virtual/VirtualField.h"

#include <algorithm>

namespace snipwren {
namespace {
constexpr double characterWidth = 8;
constexpr double lineHeight = 18;
/// Of a slow field.
constexpr int looksUntilShown = 3;
constexpr std::size_t changesShownLate = 2;
} // namespace

VirtualField::VirtualField(VirtualFieldKind kind, std::string label, std::string windowTitle, const Rect& frame)
    : kind_(kind),
      label_(std::move(label)),
      windowTitle_(std::move(windowTitle)),
      frame_(frame) {}

FieldDescription VirtualField::describe() const {
    FieldDescription description;
    description.isSecure = kind_ == VirtualFieldKind::password;
    description.role = description.isSecure ? "AXSecureTextField"
                       : kind_ == VirtualFieldKind::multiline || kind_ == VirtualFieldKind::structured ? "AXTextArea"
                                                                                                       : "AXTextField";
    description.identifier = label_;
    description.label = label_;
    description.windowTitle = windowTitle_;
    description.width = static_cast<int>(frame_.width);
    description.height = static_cast<int>(frame_.height);
    return description;
}

void VirtualField::setText(std::string_view text) {
    text_ = toUtf16(text);
    caret_ = text_.size();
    selectionLength_ = 0;
}

void VirtualField::setCaret(std::size_t utf16Offset) {
    caret_ = std::min(utf16Offset, text_.size());
    selectionLength_ = 0;
}

void VirtualField::select(const Utf16Range& range) {
    caret_ = std::min(range.start, text_.size());
    selectionLength_ = std::min(range.length, text_.size() - caret_);
}

void VirtualField::apply(const KeyEvent& event) {
    ++receivedKeys_;
    if (event.modifiers.makeShortcut()) return applyShortcut(event);
    switch (event.keyCode) {
    case keycode::deleteKey: removeBeforeCaret(); return;
    case keycode::returnKey:
    case keycode::keypadEnter:
        if (kind_ == VirtualFieldKind::multiline || kind_ == VirtualFieldKind::structured
            || kind_ == VirtualFieldKind::inaccessible)
            insert("\n");
        return;
    case keycode::leftArrow: setCaret(caret_ > 0 ? caret_ - 1 : 0); return;
    case keycode::rightArrow: setCaret(caret_ + 1); return;
    case keycode::home: setCaret(0); return;
    case keycode::end: setCaret(text_.size()); return;
    case keycode::upArrow:
    case keycode::downArrow:
    case keycode::escape:
    case keycode::tab: return;
    default: // A key that types nothing leaves the selection alone.
        if (const auto typed = textOf(event.characters); !typed.empty()) insert(typed);
    }
}

void VirtualField::applyShortcut(const KeyEvent& event) {
    if (event.keyCode == keycode::deleteKey) return removeWordBeforeCaret();
    if (!event.modifiers.control || event.characters.size() != 1) return;
    switch (event.characters.front()) {
    case 'w': removeWordBeforeCaret(); return;
    case 'u': replaceNow({0, caret_}, ""); return;
    case 'k': replaceNow({caret_, text_.size() - caret_}, ""); return;
    case 'a': select({0, text_.size()}); return;
    case 'c': // A shell gives up the line.
        if (kind_ == VirtualFieldKind::inaccessible) replaceNow({0, text_.size()}, "");
        return;
    case 'v': insert("pasted"); return;
    case 'z': setText(toUtf8(before_)); return;
    default: return;
    }
}

void VirtualField::removeWordBeforeCaret() {
    std::size_t start = caret_;
    while (start > 0 && text_[start - 1] == u' ') --start;
    while (start > 0 && text_[start - 1] != u' ') --start;
    replaceNow({start, caret_ - start}, "");
}

void VirtualField::insert(std::string_view text) { replaceNow(selection(), text); }

void VirtualField::removeBeforeCaret() {
    if (selectionLength_ == 0 && caret_ > 0) {
        const std::string before = toUtf8(std::u16string_view(text_).substr(0, caret_));
        const std::size_t start = utf16Length(std::string_view(before).substr(0, lastCharacterStart(before)));
        replaceNow({start, caret_ - start}, "");
    } else {
        replaceNow(selection(), "");
    }
}

void VirtualField::replaceNow(const Utf16Range& range, std::string_view text) {
    const std::size_t start = std::min(range.start, text_.size());
    const std::u16string wide = toUtf16(text);
    if (range.length > 0) before_ = text_;
    if (kind_ == VirtualFieldKind::slow) {
        notYetShown_.emplace_back(text_, selection());
        if (notYetShown_.size() > changesShownLate) notYetShown_.pop_front();
        looks_ = 0;
    }
    text_.replace(start, std::min(range.length, text_.size() - start), wide);
    caret_ = start + wide.size();
    selectionLength_ = 0;
}

EditOutcome VirtualField::replaceRange(const Utf16Range& range, const std::string& text) {
    switch (kind_) {
    case VirtualFieldKind::structured:
    case VirtualFieldKind::inaccessible: return EditOutcome::refused;
    case VirtualFieldKind::lying: return EditOutcome::applied;
    case VirtualFieldKind::hanging: lateEdit_ = {range, text}; return EditOutcome::unknown;
    case VirtualFieldKind::plain:
    case VirtualFieldKind::multiline:
    case VirtualFieldKind::slow:
    case VirtualFieldKind::password: break;
    }
    replaceNow(range, text);
    return EditOutcome::applied;
}

std::string VirtualField::shownText() {
    if (++looks_ >= looksUntilShown) notYetShown_.clear();
    return notYetShown_.empty() ? text() : toUtf8(notYetShown_.front().first);
}

EditOutcome VirtualField::setValue(const std::string& value) { return replaceRange({0, text_.size()}, value); }

Rect VirtualField::boundsOf(const Utf16Range& range) const {
    const auto before = std::u16string_view(text_).substr(0, std::min(range.start, text_.size()));
    const std::size_t lineStart = before.rfind(u'\n') == std::u16string_view::npos ? 0 : before.rfind(u'\n') + 1;
    const auto line = static_cast<double>(std::count(before.begin(), before.end(), u'\n'));
    return {frame_.x + characterWidth * static_cast<double>(before.size() - lineStart), frame_.y + lineHeight * line,
            characterWidth * static_cast<double>(range.length), lineHeight};
}

void VirtualField::resume() {
    kind_ = VirtualFieldKind::plain;
    if (lateEdit_) replaceNow(lateEdit_->first, lateEdit_->second);
    lateEdit_.reset();
}
} // namespace snipwren
