#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// One note to index: its full path and the name of the indexed folder that it was found in.
struct NoteFile {
    std::string path;
    std::string source;
};

/// Finds the notes below folders. Hidden and package folders are left out, links are followed once and cycles end; a
/// file that is reachable twice, through a link or through nested folders, is listed once, under the first folder.
/// Uses the system's calls and not FileIO, because telling files apart needs their inode numbers. Blocks.
class NoteFolderWalk {
public:
    /// Told the folder that could not be read and why.
    using Problem = std::function<void(const std::string& path, const std::string& reason)>;

    NoteFolderWalk() = delete;
    /// In a fixed order: that of the folders, then of the names. Ends early when stopped.
    static std::vector<NoteFile> collect(const std::vector<std::string>& folders, std::stop_token stop,
                                         const Problem& problem);
    /// By the extension, in any letter case: md, txt, markdown or org.
    static bool isNote(std::string_view fileName);
};
} // namespace snipwren
