#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/AlertPresenter.h"
#include "platform/Workspace.h"

namespace snipwren {
class FakeAlertPresenter final : public AlertPresenter {
public:
    std::vector<Alert> alerts;
    /// The index that every alert is answered with at once.
    int answer = 0;

    void present(const Alert& alert, std::function<void(int)> answered) override {
        alerts.push_back(alert);
        if (answered) answered(answer);
    }
};

/// Thread safe.
class FakeWorkspace final : public Workspace {
public:
    bool opens = true;

    void setFrontmost(RunningApplication application) {
        const std::lock_guard lock(mutex_);
        frontmost_ = std::make_shared<const RunningApplication>(std::move(application));
    }
    std::vector<std::string> opened() const {
        const std::lock_guard lock(mutex_);
        return opened_;
    }
    std::shared_ptr<const RunningApplication> frontmostApplication() const override {
        const std::lock_guard lock(mutex_);
        return frontmost_;
    }
    bool isSecureInputEnabled() const override { return false; }
    void activate(const RunningApplication& application) override { setFrontmost(application); }
    bool open(const std::string& pathOrUrl) override {
        const std::lock_guard lock(mutex_);
        opened_.push_back(pathOrUrl);
        return opens;
    }
    bool openSettings(const std::string& section, const std::string& field) override {
        return open("settings:" + section + "/" + field);
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> opened_;
    std::shared_ptr<const RunningApplication> frontmost_;
};
} // namespace snipwren
