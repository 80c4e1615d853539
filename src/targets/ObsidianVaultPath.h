#pragma once

#include <string>

#include "base/FileIO.h"
#include "base/Result.h"
#include "capture/CaptureTarget.h"

namespace snipwren {
/// Finds the root of an Obsidian vault from a folder that may lie inside it. Stateless.
class ObsidianVaultPath {
public:
    struct Resolution {
        /// The folder to treat as the vault's root.
        std::string root;
        /// The root is an ancestor of the given folder.
        bool walkedUpFromSubfolder = false;
        /// The root contains `.obsidian`.
        bool hasVaultMarker = false;
        friend bool operator==(const Resolution&, const Resolution&) = default;
    };
    enum Code { noVaultConfigured = 1, notAFolder = 3 };

    ObsidianVaultPath() = delete;
    static Result<Resolution, CaptureError> resolve(const std::string& from, FileIO& files, const std::string& home);
    static bool isVault(const std::string& folder, FileIO& files);
    /// What the settings show about a chosen folder.
    static std::string verdict(const std::string& from, FileIO& files, const std::string& home);
};
} // namespace snipwren
