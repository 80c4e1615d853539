#pragma once

#include <functional>

#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "platform/HeadsUpPanel.h"
#include "records/CaptureLanding.h"
#include "shell/NoticePanel.h"

namespace snipwren {
/// Everything that the user is told without asking: heads-up notices, receipts of captures with the way to what was
/// written, and failures with the next step that helps. Main thread, except the announcements.
class DesktopNotices final : public HeadsUpPanel, public CaptureLanding {
public:
    struct Dependencies {
        NoticePanel& panel;
        SerialQueue& mainQueue;
        NotificationCenter& notifications;
        /// Shows the file or program, and tells when that failed.
        std::function<void(const std::string& path)> reveal;
        /// Opens the settings section and focuses the field.
        std::function<void(const std::string& section, const std::string& field)> openSettings;
        /// Takes the capture back, and tells what came of it.
        std::function<void(const std::string& captureId)> undo;
    };
    static constexpr int receiptLifetime = 3500;
    static constexpr int failureLifetime = 20'000;

    explicit DesktopNotices(const Dependencies& dependencies);

    void show(const HeadsUp& notice) override;
    void announce(const Landing& landing) override;
    /// Something that the user asked for did not work. Any thread.
    void announceFault(const std::string& sentence);

private:
    void showFailure(const UserInfo& info);

    const Dependencies to_;
    NotificationCenter::Subscription subscription_;
};
} // namespace snipwren
