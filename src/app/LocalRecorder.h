#pragma once

#include "capture/CaptureRecorder.h"
#include "records/CaptureHistoryStore.h"
#include "records/FallbackCaptureLogger.h"

namespace snipwren {
/// The capture records of this user: recovery log and history.
class LocalRecorder final : public CaptureRecorder {
public:
    LocalRecorder(FallbackCaptureLogger& recoveryLog, CaptureHistoryStore& history)
        : recoveryLog_(recoveryLog),
          history_(history) {}

    bool saveFallback(const std::string& text, const std::string& target, const CaptureError& error) override;
    void record(const std::string& target, const std::string& text, bool success) override;
    RecoveryAction resolve(const std::string& command, const std::string& detail) const override;

private:
    FallbackCaptureLogger& recoveryLog_;
    CaptureHistoryStore& history_;
};
} // namespace snipwren
