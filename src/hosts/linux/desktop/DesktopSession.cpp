#include "hosts/linux/desktop/DesktopSession.h"

#include <cstdlib>

namespace snipwren {
DesktopSession DesktopSession::fromEnvironment() {
    return from([](const char* name) -> std::optional<std::string> {
        const char* const value = std::getenv(name);
        return value && *value ? std::optional<std::string>(value) : std::nullopt;
    });
}

DesktopSession DesktopSession::from(const Lookup& environment) {
    const bool wayland = environment("WAYLAND_DISPLAY") || environment("XDG_SESSION_TYPE") == "wayland";
    const bool x11 = environment("DISPLAY").has_value();
    if (wayland) return {x11 ? Kind::waylandWithX11 : Kind::wayland};
    return {x11 ? Kind::x11 : Kind::none};
}

std::optional<std::string> DesktopSession::reasonNotToTap() const {
    switch (kind) {
    case Kind::x11:
    case Kind::waylandWithX11: return std::nullopt;
    case Kind::wayland:
        return "This is a Wayland session without X11, in which no program may listen to the keys of another. Log in "
               "to an X11 session for // triggers everywhere, bind \"snipwren capture\" to a shortcut of your "
               "compositor, or type into \"snipwren type\".";
    case Kind::none:
        return "There is no graphical session here (DISPLAY is not set). Start Snipwren inside one, or use \"snipwren "
               "capture\" and \"snipwren type\" in the terminal.";
    }
    return std::nullopt;
}

std::optional<std::string> DesktopSession::warning() const {
    if (kind != Kind::waylandWithX11) return std::nullopt;
    return "This is a Wayland session: // triggers work in X11 programs only. Bind \"snipwren capture\" to a shortcut "
           "of "
           "your compositor for the others.";
}
} // namespace snipwren
