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
    std::function<EditOutcome(const Utf16Range& range, const std::string& with)> onReplace;

    std::optional<FieldDescription> describe() override { return description; }
    std::optional<std::string> value() override { return text; }
    std::optional<Utf16Range> selectedRange() override { return selection; }
    std::optional<std::string> selectedText() override { return text.substr(selection.start, selection.length); }
    EditOutcome replaceRange(const Utf16Range& range, const std::string& with) override {
        return onReplace ? onReplace(range, with) : EditOutcome::refused;
    }
    EditOutcome setValue(const std::string&) override { return EditOutcome::refused; }
    std::optional<Rect> boundsOf(const Utf16Range&) override { return std::nullopt; }
    std::optional<Rect> frame() override { return std::nullopt; }
};

class FakeFocusedField final : public FocusedField {
public:
    std::shared_ptr<FieldElement> element;
    std::shared_ptr<FieldElement> focusedElement() override { return element; }
    void setFocusObserver(FocusObserver) override {}
};
} // namespace snipwren
