#pragma once

#include <string>
#include <vector>

#include "app/Application.h"
#include "app/VirtualHost.h"
#include "cli/Command.h"

namespace snipwren {
/// A capture on the virtual desktop, driven from the command line: the application, its host, and what came of it.
class CaptureSession {
public:
    struct Failure {
        std::string command;
        std::string message;
    };
    explicit CaptureSession(CommandContext& context, const VirtualHost::RealParts& real = {});
    /// A target that does not let go of its thread ends the process here: its text is kept, and a user does not wait.
    ~CaptureSession();

    Application& application() { return application_; }
    VirtualHost& host() { return host_; }
    const std::vector<Failure>& failures() const { return failures_; }
    /// Brings what an ended program left on its way, and tells of it.
    Delivery::Recovered recover();
    /// Runs the main queue until every transition and delivery has come to its end.
    void settle();

private:
    CommandContext& context_;
    Environment& environment_;
    VirtualHost host_;
    Application application_;
    std::vector<Failure> failures_;
    NotificationCenter::Subscription subscription_;
};
} // namespace snipwren
