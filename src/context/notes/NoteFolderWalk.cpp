#include "context/notes/NoteFolderWalk.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/FileIO.h"
#include "base/Text.h"

namespace snipwren {
namespace {
struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

class Walker {
public:
    Walker(std::stop_token stop, const NoteFolderWalk::Problem& problem) : stop_(std::move(stop)), problem_(problem) {}

    void walk(const std::string& root) {
        const std::string source = fileName(root);
        // A stack of our own: the depth of a hostile folder tree must not be that of the call stack.
        std::vector<std::string> open{root};
        while (!open.empty() && !stop_.stop_requested()) {
            const std::string folder = std::move(open.back());
            open.pop_back();
            std::vector<std::string> inside = readFolder(folder, source);
            std::move(inside.rbegin(), inside.rend(), std::back_inserter(open));
        }
    }
    std::vector<NoteFile> takeNotes() { return std::move(notes_); }

private:
    /// Lists the folder's notes; answers its folders.
    std::vector<std::string> readFolder(const std::string& path, const std::string& source) {
        const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
        struct stat info {};
        if (!folder || ::fstat(::dirfd(folder.get()), &info) != 0) {
            problem_(path, FileError::from("read the folder", path, errno).description);
            return {};
        }
        if (!seen_.emplace(info.st_dev, info.st_ino).second) return {};
        std::vector<std::string> names;
        while (const dirent* entry = ::readdir(folder.get())) // NOLINT(concurrency-mt-unsafe): one stream, one thread.
            if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
        std::sort(names.begin(), names.end());
        std::vector<std::string> folders;
        for (const std::string& name : names) {
            if (::fstatat(::dirfd(folder.get()), name.c_str(), &info, 0) != 0) continue; // A link to nothing.
            if (S_ISDIR(info.st_mode)) {
                if (name != "node_modules") folders.push_back(joinedPath(path, name));
            } else if (S_ISREG(info.st_mode) && NoteFolderWalk::isNote(name)
                       && seen_.emplace(info.st_dev, info.st_ino).second) {
                notes_.push_back({joinedPath(path, name), source});
            }
        }
        return folders;
    }

    std::stop_token stop_;
    const NoteFolderWalk::Problem& problem_;
    std::set<std::pair<dev_t, ino_t>> seen_;
    std::vector<NoteFile> notes_;
};
} // namespace

bool NoteFolderWalk::isNote(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return false;
    const std::string extension = lowercased(fileName.substr(dot + 1));
    return extension == "md" || extension == "txt" || extension == "markdown" || extension == "org";
}

std::vector<NoteFile> NoteFolderWalk::collect(const std::vector<std::string>& folders, std::stop_token stop,
                                              const Problem& problem) {
    Walker walker(std::move(stop), problem);
    for (const std::string& folder : folders) walker.walk(folder);
    return walker.takeNotes();
}
} // namespace snipwren
