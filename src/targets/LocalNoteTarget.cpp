#include "targets/LocalNoteTarget.h"

#include "base/FolderLock.h"
#include "base/Text.h"

namespace snipwren {
const std::string& LocalNoteTarget::commandName() const {
    static const std::string name = "note";
    return name;
}

std::string LocalNoteTarget::captureFileURL() const {
    return joinedPath(to_.paths.documents, "Snipwren/Quick Capture.md");
}

Result<void, CaptureError> LocalNoteTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                 std::stop_token) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return {};
    const std::string path = captureFileURL();
    if (const auto appended = appendCapture(capture, path, to_.clock.now()); !appended)
        return unexpected(CaptureError{"LocalNoteTarget", appended.error().code, appended.error().description});
    to_.landing.announce({commandName(), capture, "Quick Capture.md", path, std::nullopt, true});
    to_.log.line("📝 LocalNoteTarget: Captured line to Quick Capture at: " + path);
    return {};
}

FileIO::Answer<void> LocalNoteTarget::appendCapture(const std::string& text, const std::string& path, TimePoint now) {
    if (auto made = to_.files.createFolders(parentPath(path)); !made) return made;
    {
        // Two first captures at once: the second must not write its heading over the first's line.
        const FolderLock lock(parentPath(path));
        if (!to_.files.exists(path))
            if (auto written = to_.files.writeAtomic(path, "# Quick Capture\n\n"); !written) return written;
    }
    FileIO::AppendOptions options;
    options.onFreshLine = true;
    const std::string entry = "- [" + to_.calendar.formatPosix(now, "HH:mm") + "] " + text + "\n";
    return to_.files.append(path, entry, options);
}
} // namespace snipwren
