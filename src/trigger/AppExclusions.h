#pragma once

#include "platform/Workspace.h"

namespace snipwren {
/// Which applications Snipwren keeps out of. Asked on every key: answers from memory.
class AppExclusions {
public:
    virtual ~AppExclusions() = default;
    virtual bool isExcluded(const RunningApplication& application) = 0;
};
} // namespace snipwren
