#pragma once

#include <deque>
#include <string>

#include "platform/FocusedField.h"
#include "platform/KeyEvent.h"

namespace snipwren {
/// How a field of the virtual desktop behaves, after the kinds of fields that real programs have.
enum class VirtualFieldKind {
    plain,
    multiline,
    /// Secure input is on while it has the keyboard.
    password,
    /// An editor whose value is not its document: it refuses edits from outside.
    structured,
    /// Claims edits that it does not make.
    lying,
    /// Shows its last two changes only when it has been looked at a few times since.
    slow,
    /// Answers nothing; an edit that it is asked for is made once it answers again.
    hanging,
    /// Not accessible at all, like a terminal.
    inaccessible,
};

/// One text field: its text, the caret, and what keys and edits do to it. Not thread safe: the desktop guards it.
class VirtualField {
public:
    VirtualField(VirtualFieldKind kind, std::string label, std::string windowTitle, const Rect& frame);

    VirtualFieldKind kind() const { return kind_; }
    std::string text() const { return toUtf8(text_); }
    std::size_t caret() const { return caret_; }
    /// Key downs that reached the field.
    std::size_t receivedKeys() const { return receivedKeys_; }
    const Rect& frame() const { return frame_; }
    FieldDescription describe() const;

    void setText(std::string_view text);
    void setCaret(std::size_t utf16Offset);
    /// The selection, as another program sets it.
    void select(const Utf16Range& range);
    Utf16Range selection() const { return {caret_, selectionLength_}; }
    /// What another program sees of it, each call being one look.
    std::string shownText();
    /// As of the last look.
    Utf16Range shownSelection() const { return notYetShown_.empty() ? selection() : notYetShown_.front().second; }

    /// The shortcuts of editors and shells too: words, lines and all of it deleted, selected, undone, pasted.
    void apply(const KeyEvent& event);
    void insert(std::string_view text);
    EditOutcome replaceRange(const Utf16Range& range, const std::string& text);
    EditOutcome setValue(const std::string& value);
    Rect boundsOf(const Utf16Range& range) const;
    /// Ends the hanging; what was asked meanwhile is done now.
    void resume();

    bool answers() const { return kind_ != VirtualFieldKind::hanging && kind_ != VirtualFieldKind::inaccessible; }

private:
    void replaceNow(const Utf16Range& range, std::string_view text);
    void removeBeforeCaret();
    void applyShortcut(const KeyEvent& event);
    void removeWordBeforeCaret();

    VirtualFieldKind kind_;
    std::string label_;
    std::string windowTitle_;
    Rect frame_;
    std::u16string text_;
    std::size_t caret_ = 0;
    std::size_t selectionLength_ = 0;
    std::size_t receivedKeys_ = 0;
    /// What Ctrl+Z brings back.
    std::u16string before_;
    std::optional<std::pair<Utf16Range, std::string>> lateEdit_;
    /// Of a slow field: what it was before each of the changes that do not show yet, and the looks since the last one.
    std::deque<std::pair<std::u16string, Utf16Range>> notYetShown_;
    int looks_ = 0;
};
} // namespace snipwren
