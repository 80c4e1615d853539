#pragma once

#include <string>
#include <vector>

#include "app/Application.h"
#include "app/VirtualHost.h"

namespace snipwren {
/// A capture on the virtual desktop, driven from the command line: the application, its host, and what came of it.
class CaptureSession {
public:
    struct Failure {
        std::string command;
        std::string message;
    };
    explicit CaptureSession(Environment& environment, const VirtualHost::RealParts& real = {});

    Application& application() { return application_; }
    VirtualHost& host() { return host_; }
    const std::vector<Failure>& failures() const { return failures_; }
    /// Runs the main queue until every transition and send has come to its end.
    void settle();

private:
    Environment& environment_;
    VirtualHost host_;
    Application application_;
    std::vector<Failure> failures_;
    NotificationCenter::Subscription subscription_;
};
} // namespace snipwren
