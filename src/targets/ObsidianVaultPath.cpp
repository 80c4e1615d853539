#include "targets/ObsidianVaultPath.h"

#include "base/Text.h"

namespace snipwren {
bool ObsidianVaultPath::isVault(const std::string& folder, FileIO& files) {
    return files.isFolder(joinedPath(folder, ".obsidian"));
}

Result<ObsidianVaultPath::Resolution, CaptureError> ObsidianVaultPath::resolve(const std::string& from, FileIO& files,
                                                                               const std::string& home) {
    const std::string path = expandedTilde(trimmed(from), home);
    if (path.empty())
        return unexpected(CaptureError{"ObsidianTarget", noVaultConfigured,
                                       "No Obsidian vault configured. Set your vault path under Capture Targets in "
                                       "Snipwren Settings."});
    if (!files.isFolder(path))
        return unexpected(CaptureError{"ObsidianTarget", notAFolder,
                                       "Obsidian vault path does not exist or is not a folder: " + path
                                           + ". Re-select it under Capture Targets in Snipwren Settings."});
    for (std::string folder = path; !folder.empty();) {
        if (isVault(folder, files)) return Resolution{folder, folder != path, true};
        std::string parent = parentPath(folder);
        if (parent == folder) break;
        folder = std::move(parent);
    }
    return Resolution{path, false, false};
}

std::string ObsidianVaultPath::verdict(const std::string& from, FileIO& files, const std::string& home) {
    if (trimmed(from).empty()) return "No vault selected yet.";
    const auto resolved = resolve(from, files, home);
    if (!resolved) return resolved.error().description;
    if (!resolved->hasVaultMarker)
        return "Path exists, but no .obsidian folder was found above it. Captures will still write here; prefer "
               "selecting the vault root.";
    if (resolved->walkedUpFromSubfolder) return "OK — found vault root at " + resolved->root;
    return "OK — vault root detected (contains .obsidian).";
}
} // namespace snipwren
