#pragma once

#include <memory>

#include "app/Application.h"
#include "app/SystemServices.h"
#include "app/Updates.h"
#include "capture/CaptureDraft.h"
#include "platform/linux/AtSpiFocusedField.h"
#include "platform/linux/OwnKeys.h"
#include "platform/linux/SecureInputState.h"
#include "platform/linux/X11ActiveWindow.h"
#include "platform/linux/X11KeyboardTap.h"
#include "platform/linux/X11ScreenGeometry.h"
#include "platform/linux/X11SyntheticKeyboard.h"
#include "platform/linux/X11Workspace.h"
#include "platform/portable/DesktopOpener.h"
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
    static constexpr std::chrono::seconds quitPatience{5};
    static constexpr int shownCaptures = 8;
    static constexpr std::chrono::milliseconds draftPatience{300};

    DesktopProgram(Environment& environment, QtMainQueue& mainQueue);
    ~DesktopProgram();

    /// What other programs may ask of this one.
    SingleInstance::Requests requests();
    /// Paused, it listens only once somebody says so in the menu.
    void start(bool paused);
    bool isPaused() const { return isPaused_; }
    /// Lets captures that are being sent come to their end, for a bounded time.
    void finish();
    /// Calls back once no capture is open or being sent.
    void whenIdle(std::function<void()> then);

private:
    /// X11 asks nobody for leave to listen.
    class Granted final : public Permissions {
    public:
        bool isAccessibilityTrusted() const override { return true; }
    };

    Host host();
    X11KeyboardTap::Options tapOptions() const;
    CaptureOverlayWindow::Actions overlayActions();
    void holdDraft(const CaptureState& state);
    /// Once what was captured has been delivered, or is in the recovery log.
    void discardDraftWhenSent();
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
    ThreadQueue draftQueue_{"com.snipwren.draft"};
    CaptureDraft draft_;
    DesktopOpener opener_;
    SecureInputState secureInput_;
    OwnKeys ownKeys_;
    const Appearance appearance_;
    NoticePanel panel_;
    DesktopNotices notices_;
    QtAlertPresenter alerts_;
    QtPasteboard pasteboard_;
    Granted permissions_;
    CaptureOverlayWindow overlay_;
    X11Workspace workspace_;
    X11ActiveWindow activeWindow_;
    AtSpiFocusedField fields_;
    X11SyntheticKeyboard keyboard_;
    X11ScreenGeometry screens_;
    X11KeyboardTapProvider taps_;
    SystemServices services_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<Updates> updates_;
    StatusMenu menu_;
    StatusItem item_;
    bool isPaused_ = false;
    /// What the menu was last built for.
    std::string countedDown_;
    /// A failed capture's text, for the overlay that is about to open.
    std::optional<std::string> retryText_;
};
} // namespace snipwren
