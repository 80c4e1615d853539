#pragma once

#include <memory>

#include "app/Application.h"
#include "app/LinuxHost.h"
#include "app/Updates.h"
#include "shell/CaptureOverlayWindow.h"
#include "shell/DesktopNotices.h"
#include "shell/QtAlertPresenter.h"
#include "shell/QtMainQueue.h"
#include "shell/QtPasteboard.h"
#include "shell/SingleInstance.h"
#include "shell/StatusItem.h"

namespace snipwren {
/// The desktop program: the Linux host, the application on it, and the windows and the menu in front. Main thread.
class DesktopProgram {
public:
    static constexpr int shownCaptures = 8;

    DesktopProgram(Environment& environment, QtMainQueue& mainQueue);
    ~DesktopProgram();

    /// What other programs may ask of this one.
    SingleInstance::Requests requests();
    /// Paused, it listens only once somebody says so in the menu.
    void start(bool paused);
    bool isPaused() const { return isPaused_; }
    /// Ends everything in a bounded time; false when something still holds a thread, and this object must not be destroyed.
    bool finish() { return application_->finish(); }
    /// Calls back once no capture is open or being sent.
    void whenIdle(std::function<void()> then);

private:
    LinuxHost::Options hostOptions();
    Host host();
    /// Takes back a capture, the last one without an identifier; `done` comes on the main queue.
    void undo(const std::string& captureId, std::function<void(bool, const std::string&)> done);
    std::string backlogSentence() const;
    StatusMenu::Actions menuActions();
    StatusMenu::Contents menuContents();
    bool openSettings(const std::string& section, const std::string& field);
    bool openSettingsFile();
    bool openRecoveryLog();
    void setPaused(bool paused);
    void retry(const std::string& id);
    void copyCapture(const std::string& id);
    void refreshLook();
    void countdownChanged();
    std::string status();
    /// Not on the main thread: an opener may take its time.
    void openInBackground(const std::string& path);

    Environment& environment_;
    QtMainQueue& mainQueue_;
    ThreadQueue openQueue_{"com.snipwren.open"};
    const Appearance appearance_;
    NoticePanel panel_;
    DesktopNotices notices_;
    QtAlertPresenter alerts_;
    QtPasteboard pasteboard_;
    CaptureOverlayWindow overlay_;
    LinuxHost host_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<Updates> updates_;
    StatusMenu menu_;
    StatusItem item_;
    bool isPaused_ = false;
    /// What the menu was last built for.
    std::string countedDown_;
};
} // namespace snipwren
