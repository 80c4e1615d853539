#include "base/Paths.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/Text.h"

namespace snipwren {
namespace {
constexpr const char* appFolder = "com.snipwren.app";

/// Relative values are ignored, as the XDG base directory rules ask.
std::string environmentPath(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): read once, at start-up.
    return value && *value == '/' ? value : "";
}

std::string homeFolder() {
    if (std::string home = environmentPath("HOME"); !home.empty()) return home;
    const passwd* entry = ::getpwuid(::getuid()); // NOLINT(concurrency-mt-unsafe): read once, at start-up.
    return entry && entry->pw_dir ? entry->pw_dir : "/";
}

/// The value of `key` in user-dirs.dirs, whose lines read XDG_DOCUMENTS_DIR="$HOME/Documents".
std::string userFolder(FileIO& files, const std::string& config, const std::string& home, std::string_view key,
                       std::string_view fallback) {
    const auto content = files.read(joinedPath(config, "user-dirs.dirs"));
    if (content) {
        for (const std::string_view piece : split(*content, '\n')) {
            const std::string_view line = trimmed(piece);
            const std::string start = std::string(key) + "=\"";
            if (line.substr(0, start.size()) != start || line.size() <= start.size() || line.back() != '"') continue;
            std::string value = replacedAll(line.substr(start.size(), line.size() - start.size() - 1), "$HOME", home);
            if (!value.empty() && value.front() == '/') return value;
        }
    }
    return joinedPath(home, fallback);
}
} // namespace

Paths Paths::under(const std::string& folder) {
    Paths paths;
    paths.home = folder;
    paths.applicationSupport = joinedPath(folder, std::string("data/") + appFolder);
    paths.defaultsFile = joinedPath(folder, std::string("config/") + appFolder + "/defaults.json");
    paths.documents = joinedPath(folder, "Documents");
    paths.downloads = joinedPath(folder, "Downloads");
    paths.logFile = joinedPath(folder, std::string("state/") + appFolder + "/snipwren.log");
    return paths;
}

Paths Paths::fromEnvironment(FileIO& files) {
    if (const std::string root = environmentPath("SNIPWREN_HOME"); !root.empty()) return under(root);
    const auto folder = [home = homeFolder()](const char* name, const char* fallback) {
        const std::string value = environmentPath(name);
        return value.empty() ? joinedPath(home, fallback) : value;
    };
    Paths paths;
    paths.home = homeFolder();
    const std::string config = folder("XDG_CONFIG_HOME", ".config");
    paths.applicationSupport = joinedPath(folder("XDG_DATA_HOME", ".local/share"), appFolder);
    paths.defaultsFile = joinedPath(config, std::string(appFolder) + "/defaults.json");
    paths.documents = userFolder(files, config, paths.home, "XDG_DOCUMENTS_DIR", "Documents");
    paths.downloads = userFolder(files, config, paths.home, "XDG_DOWNLOAD_DIR", "Downloads");
    paths.logFile = joinedPath(folder("XDG_STATE_HOME", ".local/state"), std::string(appFolder) + "/snipwren.log");
    return paths;
}
} // namespace snipwren
