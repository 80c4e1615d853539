#include "targets/MissingPath.h"

namespace snipwren {
std::optional<std::string> missingPathFailure(std::string_view label, std::string_view commandName,
                                              const std::string& path, FileIO& files) {
    const std::string what(label);
    if (path.empty())
        return "No " + what + " folder is set. Choose the folder in Settings, then type //" + std::string(commandName)
               + " again.";
    if (!files.isFolder(path))
        return what + " path does not exist or is not a folder: " + path + ". Choose it again in Settings.";
    return std::nullopt;
}
} // namespace snipwren
