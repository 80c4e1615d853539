#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "hosts/linux/FileDescriptor.h"
#include "hosts/linux/SecureInputState.h"
#include "hosts/linux/x11/XcbTypes.h"
#include "platform/Workspace.h"

namespace snipwren {
class DesktopOpener;

/// The application in front, followed on a thread of its own and answered from memory. The same thread watches whether
/// another program has taken the keyboard for itself, as prompts for passphrases and lockers do.
class X11Workspace final : public Workspace {
public:
    struct Options {
        /// Empty: DISPLAY.
        std::string display;
        /// Shows a settings section; none while there is no window for it.
        std::function<bool(const std::string& section, const std::string& field)> showSettings;
        /// Whether our own overlay has the keyboard, which looks like a foreign grab to everybody else.
        std::function<bool()> isOwnWindowKey;
        /// Whether an input method is at work; none where there is no way to know.
        std::function<bool()> mayInputMethodEdit;
    };

    X11Workspace(SecureInputState& secureInput, DesktopOpener& opener, Options options);
    ~X11Workspace() override;
    /// False when there is no server; it is tried again in the background.
    bool start();

    std::shared_ptr<const RunningApplication> frontmostApplication() const override;
    bool isSecureInputEnabled() const override { return secureInput_.isSecure(); }
    bool mayInputMethodEdit() const override { return options_.mayInputMethodEdit && options_.mayInputMethodEdit(); }
    void activate(const RunningApplication& application) override;
    bool open(const std::string& pathOrUrl) override;
    bool openSettings(const std::string& section, const std::string& field) override;
    /// Called on the watching thread after another application came to the front. Before start().
    void onFrontmostChanged(std::function<void(const RunningApplication&)> changed) { changed_ = std::move(changed); }

private:
    void watch();
    void publish(std::shared_ptr<const RunningApplication> application);

    SecureInputState& secureInput_;
    DesktopOpener& opener_;
    const Options options_;
    std::function<void(const RunningApplication&)> changed_;
    FileDescriptor wake_;
    std::atomic<bool> stopping_ = false;
    mutable std::mutex mutex_;
    std::shared_ptr<const RunningApplication> frontmost_;
    /// For activation, from any thread.
    std::mutex activationLock_;
    XcbConnection activation_;
    std::thread thread_;
};
} // namespace snipwren
