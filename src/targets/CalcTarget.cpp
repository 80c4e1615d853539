#include "targets/CalcTarget.h"

#include "base/BoundedCall.h"
#include "base/Text.h"
#include "parsing/calculation/CalcExpressionEvaluator.h"
#include "targets/TargetErrors.h"

namespace snipwren {
std::optional<std::string> CalcTarget::preview(const std::string& text) const {
    return CalcExpressionEvaluator::previewEvaluate(trimmed(text));
}

Result<CaptureReceipt, CaptureError> CalcTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                      CaptureAttempt& attempt) {
    const std::string capture(trimmed(text));
    const auto value = CalcExpressionEvaluator::evaluate(capture);
    if (!value) return unexpected(captureError("CalcExpressionError", value.error()));
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    const std::string result = CalcExpressionEvaluator::formatResult(*value);
    const auto copied =
        callUnlessStopped(dependencies_.mainQueue, attempt.stop(), [&pasteboard = dependencies_.pasteboard, result] {
            pasteboard.clear();
            return pasteboard.setString(result);
        });
    if (!copied) return unexpected(cancelledCapture(commandName_));
    // A receipt for an answer that is nowhere would be a lie.
    if (!*copied) return unexpected(CaptureError{"CalcTarget", 1, "Failed to write to the clipboard."});
    dependencies_.log.line("🧮 CalcTarget: Evaluated '" + characterCount(capture) + "' -> " + characterCount(result));
    return CaptureReceipt{"= " + result, std::nullopt, "function", false, {}};
}
} // namespace snipwren
