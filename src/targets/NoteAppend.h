#pragma once

#include <string>
#include <string_view>

#include "base/FileIO.h"

namespace snipwren {
/// Adds whole lines to notes that other programs have open too: by appending, so that the rest of the note is never
/// rewritten and two writers leave two whole lines.
class NoteAppend {
public:
    NoteAppend() = delete;
    /// The line, which ends in a line feed, begins on a line of its own. A note that may not be opened for writing is
    /// replaced as a whole, where its folder allows that.
    static FileIO::Answer<void> appendLine(FileIO& files, const std::string& path, std::string_view line);
};
} // namespace snipwren
