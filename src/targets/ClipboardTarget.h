#pragma once

#include <mutex>
#include <optional>

#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureTarget.h"
#include "platform/Pasteboard.h"

namespace snipwren {
/// `//copy`: puts the captured text on the clipboard. Undoing it brings back a text of our own that it replaced, which is
/// kept in memory only; else the clipboard is emptied. Thread safe.
class ClipboardTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "copy";
    static constexpr CaptureTargetHint words{"CLIPBOARD", "Stages text on the system pasteboard",
                                             "ssh -i key.pem ubuntu@api", ""};
    enum Code { writeFailed = 1, changedSince = 2 };

    ClipboardTarget(Pasteboard& pasteboard, SerialQueue& mainQueue, Log& log)
        : pasteboard_(pasteboard),
          mainQueue_(mainQueue),
          log_(log) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    /// Never: the clipboard of an hour ago must not come back by itself.
    bool deliversAfter(Duration) const override { return false; }
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                           std::stop_token stop) override;

private:
    struct Replaced {
        std::string captureId;
        std::optional<std::string> text;
    };

    Pasteboard& pasteboard_;
    SerialQueue& mainQueue_;
    Log& log_;
    const std::string commandName_ = word;
    std::mutex mutex_;
    std::optional<Replaced> replaced_;
};
} // namespace snipwren
