#include "targets/CalcTarget.h"

#include "base/Text.h"
#include "parsing/CalcExpressionEvaluator.h"
#include "targets/TargetErrors.h"

namespace snipwren {
Result<void, CaptureError> CalcTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                            std::stop_token stop) {
    const std::string capture(trimmed(text));
    const auto value = CalcExpressionEvaluator::evaluate(capture);
    if (!value) return unexpected(captureError("CalcExpressionError", value.error()));
    if (stop.stop_requested()) return unexpected(cancelledCapture(commandName_));
    const std::string result = CalcExpressionEvaluator::formatResult(*value);
    bool copied = false;
    const auto copy = [&] {
        dependencies_.pasteboard.clear();
        copied = dependencies_.pasteboard.setString(result);
    };
    dependencies_.mainQueue.isCurrent() ? copy() : dependencies_.mainQueue.sync(copy);
    // A receipt for an answer that is nowhere would be a lie.
    if (!copied) return unexpected(CaptureError{"CalcTarget", 1, "Failed to write to the clipboard."});
    dependencies_.landing.announce({commandName_, capture, "= " + result, std::nullopt, "function", false});
    dependencies_.log.line("🧮 CalcTarget: Evaluated '" + capture + "' -> " + result);
    return {};
}
} // namespace snipwren
