#pragma once

#include "base/Calendar.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "capture/CaptureTarget.h"
#include "records/CaptureLanding.h"

namespace snipwren {
/// `//note`: appends each capture as one time-stamped line to a Markdown file in the documents folder.
class LocalNoteTarget final : public CaptureTarget {
public:
    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const Clock& clock;
        const Calendar& calendar;
        CaptureLanding& landing;
        Log& log;
    };
    explicit LocalNoteTarget(const Dependencies& dependencies) : to_(dependencies) {}

    const std::string& commandName() const override;
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

    /// `Snipwren/Quick Capture.md` in the documents folder.
    std::string captureFileURL() const;
    /// "- [09:05] text" on a line of its own, whatever the file ended with. A new file begins with a heading.
    FileIO::Answer<void> appendCapture(const std::string& text, const std::string& path, TimePoint now);

private:
    Dependencies to_;
};
} // namespace snipwren
