#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Workspace.h"

namespace snipwren {
/// What the display server and the kernel tell of a window's program.
struct WindowOwner {
    int processId = 0;
    /// The two strings of WM_CLASS.
    std::string instanceName = {};
    std::string className = {};
    std::string title = {};
    /// What toolkits put on their windows: GTK's application id, or the desktop file's name that Qt and KDE give.
    std::string applicationId = {};
    std::string executable = {};
    std::string flatpakId = {};
};

/// Finds out which application a window belongs to: the id of its desktop file is its identity, everything else that it
/// goes by is kept beside it, because exclusions may name any of these. Reads desktop files once; one thread.
class ApplicationIdentity {
public:
    /// The `applications` folders, best first.
    explicit ApplicationIdentity(std::vector<std::string> folders);
    /// Those of the XDG variables, Flatpak's and Snap's included.
    static std::vector<std::string> defaultFolders();

    RunningApplication identify(const WindowOwner& owner);
    /// From /proc; empty texts for a process that is gone or not ours to see.
    static std::string executableOf(int processId, const std::string& proc = "/proc");
    static std::string flatpakIdOf(int processId, const std::string& proc = "/proc");

private:
    struct DesktopFile {
        std::string id;
        std::string name;
        std::string windowClass;
        std::string program;
    };
    void load();
    const DesktopFile* find(const WindowOwner& owner) const;

    const std::vector<std::string> folders_;
    std::vector<DesktopFile> files_;
    bool loaded_ = false;
};
} // namespace snipwren
