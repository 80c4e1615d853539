#pragma once

#include <functional>
#include <optional>
#include <string>

namespace snipwren {
/// What kind of graphical session this is, told from the environment alone.
struct DesktopSession {
    enum class Kind { none, x11, wayland, waylandWithX11 };
    using Lookup = std::function<std::optional<std::string>(const char* name)>;

    Kind kind = Kind::none;

    static DesktopSession fromEnvironment();
    static DesktopSession from(const Lookup& environment);
    /// The sentences for the user when no key tap can work here; none when it can.
    std::optional<std::string> reasonNotToTap() const;
    /// What the user should know although the tap works; none when there is nothing.
    std::optional<std::string> warning() const;
};
} // namespace snipwren
