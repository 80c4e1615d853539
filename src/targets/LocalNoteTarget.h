#pragma once

#include "base/Calendar.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "capture/CaptureTarget.h"
#include "targets/NoteAppend.h"

namespace snipwren {
/// `//note`: appends each capture as one time-stamped line to a Markdown file in the documents folder.
class LocalNoteTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "note";
    static constexpr CaptureTargetHint words{"QUICK CAPTURE", "Appends to ~/Documents/Snipwren/Quick Capture.md",
                                             "buy milk on the way home", ""};

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const Calendar& calendar;
        Log& log;
    };
    enum Code { fileFailed = 1 };

    explicit LocalNoteTarget(const Dependencies& dependencies) : to_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                           std::stop_token stop) override;

    /// `Snipwren/Quick Capture.md` in the documents folder.
    std::string captureFileURL() const;
    /// "- [09:05] text" on a line of its own, whatever the file ended with. A new file begins with a heading.
    FileIO::Answer<void> appendCapture(const std::string& text, const std::string& path, TimePoint now);

private:
    std::string entry(const std::string& text, TimePoint moment) const;
    FileIO::Answer<void> createNote(const std::string& path);

    const Dependencies to_;
    const NoteAppend notes_{to_.files, "LocalNoteTarget", fileFailed};
    const std::string commandName_ = word;
};
} // namespace snipwren
