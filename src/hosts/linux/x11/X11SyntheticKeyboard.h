#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "hosts/linux/x11/OwnKeys.h"
#include "hosts/linux/x11/XkbKeyboard.h"
#include "platform/KeyboardTap.h"

namespace snipwren {
/// Posts keys through the server's test extension, on a connection of its own. Control, Alt or Super held by the user
/// would turn them into shortcuts, so it waits a moment for their release and otherwise declines. Thread safe.
class X11SyntheticKeyboard final : public SyntheticKeyboard {
public:
    static constexpr std::chrono::milliseconds modifierPatience{1000};
    /// A tap lets our own keys through in well under a millisecond; a hanging one must not hang us.
    static constexpr std::chrono::milliseconds passingPatience{50};

    /// An empty display stands for DISPLAY. Connects on first use.
    explicit X11SyntheticKeyboard(OwnKeys& ownKeys, std::string display = {});

    bool pressKey(int keyCode, const Modifiers& modifiers) override;
    /// Types nothing at all when a character is not on the layout.
    bool typeText(const std::string& text) override;

private:
    bool connect();
    bool waitForModifiers();
    bool post(const XkbKeyboard::Typing& typing);

    OwnKeys& ownKeys_;
    const std::string display_;
    std::mutex mutex_;
    XcbConnection connection_;
    std::unique_ptr<XkbKeyboard> keyboard_;
};
} // namespace snipwren
