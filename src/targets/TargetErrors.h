#pragma once

#include <string>

#include "capture/CaptureTarget.h"
#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
/// A component's error as the router takes it: its own sentence, unchanged.
template <class Error>
CaptureError captureError(const char* domain, Error error) {
    return {domain, static_cast<int>(error), std::string(message(error))};
}

inline CaptureError captureError(const NotificationSchedulerError& error) {
    return {"NotificationSchedulerError", static_cast<int>(error.kind), message(error)};
}

/// For a send that was stopped before it did anything.
inline CaptureError cancelledCapture(const std::string& commandName) {
    return {commandName, -1, "The capture was cancelled before it was sent. Nothing was saved. Send it again."};
}

/// For an undo that was stopped before it did anything.
inline CaptureError cancelledUndo(const std::string& commandName) {
    return {commandName, -1, "The program ended before the capture was taken back. Nothing was undone. Try again."};
}
} // namespace snipwren
