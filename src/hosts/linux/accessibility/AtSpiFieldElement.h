#pragma once

#include <memory>

#include "hosts/linux/accessibility/AtSpiTextUnits.h"
#include "hosts/linux/accessibility/AtSpiWorker.h"
#include "platform/FocusedField.h"

namespace snipwren {
/// A text field that had the keyboard when it was asked for. Every call is one job of the worker. After a call that the
/// program did not answer, only value() and selectedRange() ask it again for a while: the others would cost their time
/// for nothing, while an answer to these proves that every earlier request has been carried out, in order.
class AtSpiFieldElement final : public FieldElement {
public:
    static constexpr std::chrono::milliseconds silenceAfterTimeout{250};
    static constexpr int maxCharacters = 1'000'000;

    AtSpiFieldElement(std::shared_ptr<AtSpiWorker> worker, std::shared_ptr<const AtSpiField> field)
        : worker_(std::move(worker)),
          field_(std::move(field)) {}

    std::optional<FieldDescription> describe() override;
    std::optional<std::string> value() override;
    std::optional<Utf16Range> selectedRange() override;
    std::optional<std::string> selectedText() override;
    EditOutcome replaceRange(const Utf16Range& range, const std::string& text) override;
    EditOutcome setValue(const std::string& value) override;
    /// In screen pixels.
    std::optional<Rect> boundsOf(const Utf16Range& range) override;
    std::optional<Rect> frame() override;

private:
    struct Contents {
        std::string text;
        AtSpiTextUnits units;
    };
    template <class F>
    auto ask(F&& job, bool evenAfterTimeout = false) -> decltype(job());
    std::optional<Contents> contents();
    std::optional<Utf16Range> selection(const Contents& contents);
    bool mayEdit();
    EditOutcome insert(int position, const std::string& text);

    const std::shared_ptr<AtSpiWorker> worker_;
    const std::shared_ptr<const AtSpiField> field_;
    /// Worker thread.
    std::optional<SteadyPoint> silentSince_;
};
} // namespace snipwren
