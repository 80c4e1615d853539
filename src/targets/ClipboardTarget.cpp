#include "targets/ClipboardTarget.h"

#include "base/Text.h"

namespace snipwren {
const std::string& ClipboardTarget::commandName() const {
    static const std::string name = "copy";
    return name;
}

Result<void, CaptureError> ClipboardTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                 std::stop_token) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return {};
    const bool copied = mainQueue_.call([&] {
        pasteboard_.clear();
        return pasteboard_.setString(capture);
    });
    if (!copied) return unexpected(CaptureError{"ClipboardTarget", 1, "Failed to write to the clipboard."});
    landing_.announce({commandName(), capture, "Copied", std::nullopt, std::nullopt, false});
    log_.line("📝 ClipboardTarget: Successfully copied text to NSPasteboard: '" + capture + "'");
    return {};
}
} // namespace snipwren
