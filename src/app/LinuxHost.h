#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/Environment.h"
#include "app/Host.h"

namespace snipwren {
/// The host for a Linux desktop under X11: everything but the windows, which whoever has a toolkit brings. Main thread.
class LinuxHost {
public:
    struct Options {
        /// Holds back every slash and not only a second one.
        bool grabEverySlash = false;
        /// The program that answers for this one when it is stopped; empty for none.
        std::string guardProgram;
        /// Shows a settings section and focuses a field in it; false when there is no such screen.
        std::function<bool(const std::string& section, const std::string& field)> openSettings;
        /// Whether our own overlay has the keyboard. Any thread.
        std::function<bool()> isOwnWindowKey;
    };
    /// What the toolkit shows.
    struct Windows {
        CaptureOverlay& overlay;
        OwnWindowKeyboardGuard& ownWindows;
        Pasteboard& pasteboard;
        AlertPresenter& alerts;
        HeadsUpPanel& headsUp;
        CaptureLanding& landing;
        SerialQueue& mainQueue;
    };

    LinuxHost(Environment& environment, Options options);
    ~LinuxHost();

    Host host(const Windows& windows);
    /// `secretBegan` is called, on any thread, when a password is about to be typed.
    void start(std::function<void()> secretBegan);
    /// The accessibility connection ends; nothing asks for fields any more.
    void stop();
    bool isAccessibilityConnected() const;
    /// Blocks while a program is looked for; any thread but the main one.
    bool open(const std::string& path);

    /// Why no key tap can work in this session; none when it can. From the environment alone.
    static std::optional<std::string> reasonNotToTap();
    /// What the user should know although the tap works.
    static std::optional<std::string> warning();

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};
} // namespace snipwren
