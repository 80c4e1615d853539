#pragma once

#include <string>

#include "capture/CaptureTarget.h"

namespace snipwren {
/// The next step that a failure notice offers: a settings section, a field in it (empty: none), a button title.
struct RecoveryAction {
    std::string section;
    std::string field;
    std::string actionTitle;
};

/// What remains of a capture: the history, and the recovery log for what could not be delivered. Any thread.
class CaptureRecorder {
public:
    virtual ~CaptureRecorder() = default;
    /// Keeps the text of a failed capture; answers whether it is safe on the disk.
    virtual bool saveFallback(const std::string& text, const std::string& target, const CaptureError& error) = 0;
    virtual void record(const std::string& target, const std::string& text, bool success) = 0;
    virtual RecoveryAction resolve(const std::string& command, const std::string& detail) const = 0;
};
} // namespace snipwren
