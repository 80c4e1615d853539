#include "targets/ClipboardTarget.h"

#include <utility>

#include "base/BoundedCall.h"
#include "base/Text.h"
#include "targets/TargetErrors.h"

namespace snipwren {
Result<CaptureReceipt, CaptureError> ClipboardTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                           CaptureAttempt& attempt) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return CaptureReceipt();
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    struct Outcome {
        bool copied;
        bool isSeen;
        std::optional<std::string> before;
    };
    auto outcome = callUnlessStopped(mainQueue_, attempt.stop(), [&pasteboard = pasteboard_, capture] {
        // Not what another program holds: to be told, we would have to wait for that program.
        auto before = pasteboard.ownString();
        pasteboard.clear();
        const bool copied = pasteboard.setString(capture);
        return Outcome{copied, pasteboard.ownString() == capture, std::move(before)};
    });
    if (!outcome) return unexpected(cancelledCapture(commandName_));
    if (!outcome->copied)
        return unexpected(CaptureError{"ClipboardTarget", writeFailed, "Failed to write to the clipboard."});
    {
        const std::lock_guard lock(mutex_);
        replaced_ = Replaced{attempt.captureId(), std::move(outcome->before)};
    }
    log_.line("📝 ClipboardTarget: Successfully copied text to NSPasteboard: '" + characterCount(capture) + "'");
    return CaptureReceipt{"Copied", std::nullopt, std::nullopt, false, outcome->isSeen ? attempt.captureId() : ""};
}

Result<std::string, CaptureError> ClipboardTarget::undo(const std::string& text, const std::string& undo,
                                                        std::stop_token stop) {
    std::optional<std::string> before;
    {
        const std::lock_guard lock(mutex_);
        if (replaced_ && replaced_->captureId == undo) before = std::exchange(replaced_, std::nullopt)->text;
    }
    const auto failed = [](Code code, const char* description) {
        return unexpected(CaptureError{"ClipboardTarget", code, description});
    };
    enum class Outcome { restored, emptied, changed, refused };
    const auto outcome =
        callUnlessStopped(mainQueue_, stop, [&pasteboard = pasteboard_, capture = std::string(trimmed(text)), before] {
            if (pasteboard.ownString() != capture) return Outcome::changed;
            pasteboard.clear();
            if (!before || before->empty()) return Outcome::emptied;
            return pasteboard.setString(*before) ? Outcome::restored : Outcome::refused;
        });
    if (!outcome) return unexpected(cancelledUndo(commandName_));
    switch (*outcome) {
    case Outcome::restored: return "The clipboard holds again what it held before.";
    case Outcome::emptied: return "The clipboard was emptied.";
    case Outcome::changed:
        return failed(changedSince, "The clipboard holds something else by now, so it was left as it is. Copy what you "
                                    "need again.");
    case Outcome::refused:
        return failed(writeFailed, "The clipboard was emptied, but did not take back what it held before. Copy that "
                                   "again.");
    }
    return {};
}
} // namespace snipwren
