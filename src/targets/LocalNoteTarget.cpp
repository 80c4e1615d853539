#include "targets/LocalNoteTarget.h"

#include "base/FolderLock.h"
#include "base/Text.h"
#include "targets/TargetErrors.h"

namespace snipwren {
std::string LocalNoteTarget::captureFileURL() const {
    return joinedPath(to_.paths.documents, "Snipwren/Quick Capture.md");
}

std::string LocalNoteTarget::entry(const std::string& text, TimePoint moment) const {
    return "- [" + to_.calendar.formatPosix(moment, "HH:mm") + "] " + text + "\n";
}

Result<CaptureReceipt, CaptureError> LocalNoteTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                           CaptureAttempt& attempt) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return CaptureReceipt();
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    auto line = notes_.arrived(attempt);
    if (!line) return unexpected(line.error());
    if (!*line) {
        const std::string path = captureFileURL();
        auto appended =
            notes_.append(attempt, path, entry(capture, attempt.confirmedAt()), [&]() -> Result<void, CaptureError> {
                if (const auto created = createNote(path); !created) return unexpected(notes_.failure(created.error()));
                return {};
            });
        if (!appended) return unexpected(appended.error());
        *line = *std::move(appended);
    }
    to_.log.line("📝 LocalNoteTarget: Captured line to Quick Capture at: " + (*line)->path);
    return CaptureReceipt{"Quick Capture.md", (*line)->path, std::nullopt, true, (*line)->encoded()};
}

Result<std::string, CaptureError> LocalNoteTarget::undo(const std::string&, const std::string& undo, std::stop_token) {
    return notes_.takeOut(undo);
}

FileIO::Answer<void> LocalNoteTarget::createNote(const std::string& path) {
    if (auto made = to_.files.createFolders(parentPath(path)); !made) return made;
    // Two first captures at once: the second must not write its heading over the first's line.
    const FolderLock lock(parentPath(path));
    if (to_.files.exists(path)) return {};
    return to_.files.writeAtomic(path, "# Quick Capture\n\n");
}

FileIO::Answer<void> LocalNoteTarget::appendCapture(const std::string& text, const std::string& path, TimePoint now) {
    if (auto created = createNote(path); !created) return created;
    return NoteAppend::appendLine(to_.files, path, entry(text, now));
}
} // namespace snipwren
