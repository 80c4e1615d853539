#pragma once

#include "context/mcp/McpBridge.h"

namespace snipwren {
/// Runs one capture in a process of its own, as `snipwren capture` does: what a capture needs is then neither opened nor
/// kept by the process that asks. The text goes through a pipe, where no list of processes shows it. Blocking.
McpBridge::CaptureOutcome captureInOwnProcess(const McpBridge::CaptureRequest& request);
} // namespace snipwren
