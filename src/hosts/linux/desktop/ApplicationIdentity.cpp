#include "hosts/linux/desktop/ApplicationIdentity.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "base/Text.h"

namespace snipwren {
namespace {
namespace fs = std::filesystem;
constexpr std::string_view suffix = ".desktop";

std::string baseName(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

/// The program of an Exec line, without its folder: "env A=b /usr/bin/gedit %U" gives "gedit".
std::string programOf(std::string_view exec) {
    for (std::string_view word : split(exec, ' ')) {
        if (word.size() >= 2 && word.front() == '"' && word.back() == '"') word = word.substr(1, word.size() - 2);
        if (word.empty() || word == "env" || word.ends_with("/env") || word.find('=') != std::string_view::npos)
            continue;
        return baseName(word);
    }
    return {};
}

bool sameName(const std::string& a, const std::string& b) {
    return !a.empty() && asciiLowercased(a) == asciiLowercased(b);
}

std::string environment(const char* name, const std::string& otherwise) {
    const char* const value = std::getenv(name);
    return value && *value ? value : otherwise;
}
} // namespace

ApplicationIdentity::ApplicationIdentity(std::vector<std::string> folders) : folders_(std::move(folders)) {}

std::vector<std::string> ApplicationIdentity::defaultFolders() {
    const std::string home = environment("HOME", "/");
    const std::string dataHome = environment("XDG_DATA_HOME", home + "/.local/share");
    std::vector<std::string> folders{dataHome + "/applications", dataHome + "/flatpak/exports/share/applications"};
    const std::string dirs = environment("XDG_DATA_DIRS", "/usr/local/share:/usr/share");
    for (const std::string_view dir : split(dirs, ':')) {
        if (!dir.empty()) folders.push_back(std::string(dir) + "/applications");
    }
    folders.push_back("/var/lib/flatpak/exports/share/applications");
    folders.push_back("/var/lib/snapd/desktop/applications");
    return folders;
}

void ApplicationIdentity::load() {
    loaded_ = true;
    for (const std::string& folder : folders_) {
        std::error_code error;
        for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error), end;
             !error && it != end; it.increment(error)) {
            const std::string path = it->path().string();
            if (!path.ends_with(suffix)) continue;
            DesktopFile file;
            // A folder below the first becomes part of the id, with a hyphen.
            file.id = path.substr(folder.size() + 1, path.size() - folder.size() - 1 - suffix.size());
            std::replace(file.id.begin(), file.id.end(), '/', '-');
            std::ifstream stream(path);
            bool inEntry = false;
            for (std::string line; std::getline(stream, line);) {
                if (line.starts_with('[')) inEntry = line == "[Desktop Entry]";
                if (!inEntry) continue;
                const auto value = [&line](std::string_view key) -> std::optional<std::string> {
                    if (!line.starts_with(key)) return std::nullopt;
                    return std::string(trimmed(std::string_view(line).substr(key.size())));
                };
                if (const auto name = value("Name=")) file.name = *name;
                if (const auto windowClass = value("StartupWMClass=")) file.windowClass = *windowClass;
                if (const auto exec = value("Exec=")) file.program = programOf(*exec);
            }
            const bool shadowed = std::any_of(files_.begin(), files_.end(),
                                              [&](const DesktopFile& earlier) { return earlier.id == file.id; });
            if (!shadowed) files_.push_back(std::move(file));
        }
    }
}

const ApplicationIdentity::DesktopFile* ApplicationIdentity::find(const WindowOwner& owner) const {
    const auto first = [this](auto&& matches) -> const DesktopFile* {
        const auto found = std::find_if(files_.begin(), files_.end(), matches);
        return found == files_.end() ? nullptr : &*found;
    };
    // From the surest sign to the weakest.
    for (const std::string& id : {owner.flatpakId, owner.applicationId}) {
        if (id.empty()) continue;
        if (const auto* file = first([&](const DesktopFile& f) { return sameName(f.id, id); })) return file;
    }
    for (const std::string& name : {owner.className, owner.instanceName}) {
        if (name.empty()) continue;
        if (const auto* file = first([&](const DesktopFile& f) { return sameName(f.windowClass, name); })) return file;
        if (const auto* file = first([&](const DesktopFile& f) { return sameName(f.id, name); })) return file;
        // "org.gnome.Nautilus" for the class "Nautilus".
        const std::string ending = "." + asciiLowercased(name);
        if (const auto* file = first([&](const DesktopFile& f) { return asciiLowercased(f.id).ends_with(ending); }))
            return file;
    }
    const std::string program = baseName(owner.executable);
    // Interpreters run many programs.
    if (program.empty() || program.starts_with("python") || program.starts_with("perl") || program == "java"
        || program == "gjs-console" || program == "bash" || program == "sh" || program == "env")
        return nullptr;
    return first([&](const DesktopFile& f) { return f.program == program; });
}

RunningApplication ApplicationIdentity::identify(const WindowOwner& owner) {
    if (!loaded_) load();
    const DesktopFile* const file = find(owner);
    const std::string program = baseName(owner.executable);
    RunningApplication application;
    application.processId = owner.processId;
    const auto add = [&application](const std::string& name) {
        const std::string lower = asciiLowercased(name);
        auto& names = application.identities;
        if (!lower.empty() && std::find(names.begin(), names.end(), lower) == names.end()) names.push_back(lower);
    };
    for (const std::string& name : {file ? file->id : std::string(), owner.flatpakId, owner.applicationId,
                                    owner.className, owner.instanceName, program, owner.executable}) {
        if (application.bundleId.empty()) application.bundleId = name;
        add(name);
    }
    for (const std::string& name : {file ? file->name : std::string(), owner.className, program, owner.title}) {
        if (application.name.empty()) application.name = name;
    }
    return application;
}

std::string ApplicationIdentity::executableOf(int processId, const std::string& proc) {
    std::error_code error;
    std::string path = fs::read_symlink(proc + "/" + std::to_string(processId) + "/exe", error).string();
    // An upgraded program's old file.
    constexpr std::string_view deleted = " (deleted)";
    if (path.ends_with(deleted)) path.resize(path.size() - deleted.size());
    return path;
}

std::string ApplicationIdentity::flatpakIdOf(int processId, const std::string& proc) {
    // Every sandbox shows its own description at this place below its root.
    std::ifstream info(proc + "/" + std::to_string(processId) + "/root/.flatpak-info");
    bool inApplication = false;
    for (std::string line; std::getline(info, line);) {
        if (line.starts_with('[')) inApplication = line == "[Application]";
        if (inApplication && line.starts_with("name=")) return line.substr(5);
    }
    return {};
}
} // namespace snipwren
