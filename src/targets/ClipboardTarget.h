#pragma once

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureTarget.h"
#include "platform/Pasteboard.h"
#include "records/CaptureLanding.h"

namespace snipwren {
/// `//copy`: puts the captured text on the clipboard.
class ClipboardTarget final : public CaptureTarget {
public:
    ClipboardTarget(Pasteboard& pasteboard, SerialQueue& mainQueue, CaptureLanding& landing, Log& log)
        : pasteboard_(pasteboard),
          mainQueue_(mainQueue),
          landing_(landing),
          log_(log) {}

    const std::string& commandName() const override;
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

private:
    Pasteboard& pasteboard_;
    SerialQueue& mainQueue_;
    CaptureLanding& landing_;
    Log& log_;
};
} // namespace snipwren
