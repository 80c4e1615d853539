#include "app/LocalRecorder.h"

#include "records/CaptureFailureGuide.h"

namespace snipwren {
bool LocalRecorder::saveFallback(const std::string& text, const std::string& target, const CaptureError& error) {
    return recoveryLog_.saveFallback(text, target, error.description);
}

void LocalRecorder::record(const std::string& target, const std::string& text, bool success) {
    history_.record(target, text, success);
}

RecoveryAction LocalRecorder::resolve(const std::string& command, const std::string& detail) const {
    const CaptureFailureGuide guide = CaptureFailureGuide::resolve(command, detail);
    return {guide.section, guide.field.value_or(""), guide.actionTitle};
}
} // namespace snipwren
