#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace snipwren {
struct RunningApplication {
    /// The identity that rules and exclusions name: the bundle identifier, or on Linux the best of `identities`.
    std::string bundleId;
    /// Every other name it goes by (desktop-file id, WM_CLASS, executable, Flatpak id), lower-cased.
    std::vector<std::string> identities;
    std::string name;
    int processId = 0;
    /// The host's own handle of the window to come back to; 0 when it has none.
    std::uint64_t window = 0;
};

/// The running programs and what the system opens. Any thread.
class Workspace {
public:
    virtual ~Workspace() = default;
    /// Kept up to date in the background and answered from memory, without waiting: it is asked on every key.
    virtual std::shared_ptr<const RunningApplication> frontmostApplication() const = 0;
    /// True while a password is being typed anywhere.
    virtual bool isSecureInputEnabled() const = 0;
    /// True when an input method may have made other text of the keys than they show. May block for some milliseconds.
    virtual bool mayInputMethodEdit() const { return false; }
    virtual void activate(const RunningApplication& application) = 0;
    /// Opens a file or an address with the program chosen for it; false when that is known to have failed.
    virtual bool open(const std::string& pathOrUrl) = 0;
    /// Shows a settings section and focuses a field in it (empty: none); false when there is no such screen here.
    virtual bool openSettings(const std::string& section, const std::string& field) = 0;
};

/// What the user allowed us.
class Permissions {
public:
    virtual ~Permissions() = default;
    virtual bool isAccessibilityTrusted() const = 0;
};
} // namespace snipwren
