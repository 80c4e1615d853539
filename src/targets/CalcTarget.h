#pragma once

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureTarget.h"
#include "platform/Pasteboard.h"

namespace snipwren {
/// Evaluates arithmetic and puts the answer on the clipboard: "15% of 847".
class CalcTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "calc";
    static constexpr CaptureTargetHint words{"QUICK CALCULATOR", "Live result while typing · Enter copies answer",
                                             "15% of 847", ""};

    struct Dependencies {
        Pasteboard& pasteboard;
        SerialQueue& mainQueue;
        Log& log;
    };
    explicit CalcTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    std::optional<std::string> preview(const std::string& text) const override;
    bool previewIsResult() const override { return true; }
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    /// Never: it would replace the clipboard long after the question.
    bool deliversAfter(Duration) const override { return false; }

private:
    const Dependencies dependencies_;
    const std::string commandName_ = word;
};
} // namespace snipwren
