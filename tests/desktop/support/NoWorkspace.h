#pragma once

#include "platform/Workspace.h"

namespace snipwren {
/// A workspace that knows no application, for tests of what works without one.
class NoWorkspace final : public Workspace {
public:
    std::shared_ptr<const RunningApplication> frontmostApplication() const override { return nullptr; }
    bool isSecureInputEnabled() const override { return false; }
    void activate(const RunningApplication&) override {}
    bool open(const std::string&) override { return false; }
    bool openSettings(const std::string&, const std::string&) override { return false; }
};
} // namespace snipwren
