#pragma once

#include <functional>

#include "platform/FocusedField.h"

namespace snipwren {
/// One text field in memory with a selection. Not thread safe.
class FakeFieldElement final : public FieldElement {
public:
    FieldDescription description{};
    std::string text;
    Utf16Range selection;
    /// Where the caret and the field are on the screen; none: it does not say.
    std::optional<Rect> caret;
    std::optional<Rect> place;
    std::function<EditOutcome(const Utf16Range& range, const std::string& with)> onReplace;

    std::optional<FieldDescription> describe() override { return description; }
    std::optional<std::string> value() override { return text; }
    std::optional<Utf16Range> selectedRange() override { return selection; }
    std::optional<std::string> selectedText() override { return text.substr(selection.start, selection.length); }
    EditOutcome replaceRange(const Utf16Range& range, const std::string& with) override {
        return onReplace ? onReplace(range, with) : EditOutcome::refused;
    }
    EditOutcome setValue(const std::string&) override { return EditOutcome::refused; }
    std::optional<Rect> boundsOf(const Utf16Range&) override { return caret; }
    std::optional<Rect> frame() override { return place; }
};

class FakeFocusedField final : public FocusedField {
public:
    std::shared_ptr<FieldElement> element;
    std::shared_ptr<FieldElement> focusedElement() override { return element; }
    void setFocusObserver(FocusObserver) override {}
};
} // namespace snipwren
