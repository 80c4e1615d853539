#pragma once

#include <memory>

#include "platform/FocusedField.h"
#include "platform/Workspace.h"

namespace snipwren {
/// The host application and its focused field at the moment a capture begins; either may be unknown.
struct HostCaptureContext {
    std::shared_ptr<const RunningApplication> application;
    std::shared_ptr<FieldElement> element;

    std::string bundleId() const { return application ? application->bundleId : std::string(); }
};

class HostFocus {
public:
    HostFocus() = delete;
    /// Blocks for the host's answer, for a bounded time.
    static HostCaptureContext snapshot(const Workspace& workspace, FocusedField& fields) {
        return {workspace.frontmostApplication(), fields.focusedElement()};
    }
};
} // namespace snipwren
