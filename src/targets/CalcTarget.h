#pragma once

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureTarget.h"
#include "platform/Pasteboard.h"
#include "records/CaptureLanding.h"

namespace snipwren {
/// Evaluates arithmetic and puts the answer on the clipboard: "15% of 847".
class CalcTarget final : public CaptureTarget {
public:
    struct Dependencies {
        Pasteboard& pasteboard;
        SerialQueue& mainQueue;
        CaptureLanding& landing;
        Log& log;
    };
    explicit CalcTarget(const Dependencies& dependencies) : dependencies_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    const Dependencies dependencies_;
    const std::string commandName_ = "calc";
};
} // namespace snipwren
