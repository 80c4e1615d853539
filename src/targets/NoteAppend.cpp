#include "targets/NoteAppend.h"

#include <cerrno>

namespace snipwren {
FileIO::Answer<void> NoteAppend::appendLine(FileIO& files, const std::string& path, std::string_view line) {
    FileIO::AppendOptions options;
    options.onFreshLine = true;
    auto appended = files.append(path, line, options);
    const bool couldNotOpen = !appended && (appended.error().code == EACCES || appended.error().code == EPERM);
    if (!couldNotOpen) return appended;
    auto content = files.read(path);
    if (!content && content.error().code != ENOENT) return unexpected(content.error());
    std::string whole = content ? *std::move(content) : std::string();
    if (!whole.empty() && whole.back() != '\n') whole += '\n';
    return files.writeAtomic(path, whole.append(line));
}
} // namespace snipwren
