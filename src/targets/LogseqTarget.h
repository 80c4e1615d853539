#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Calendar.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "capture/CaptureTarget.h"
#include "targets/NoteAppend.h"

namespace snipwren {
/// `//logseq`: appends the capture as a block to the day's journal page; a capture that begins with "todo" becomes a task.
class LogseqTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "logseq";
    static constexpr CaptureTargetHint words{"LOGSEQ", "Prefix TODO for task bullets", "TODO review competitor pricing",
                                             ""};
    static constexpr const char* graphKey = "logseqGraphPath";
    /// The journal's file name, as a Unicode date pattern.
    static constexpr const char* journalPattern = "yyyy_MM_dd";

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const UserDefaults& defaults;
        const Calendar& calendar;
        Log& log;
    };
    enum Code { noGraphConfigured = 1, fileFailed = 2 };

    explicit LogseqTarget(const Dependencies& dependencies) : to_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    std::optional<std::string> readiness() const override;
    CaptureFailureGuide failureGuide(std::string_view detail) const override;
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                           std::stop_token stop) override;

    /// The journal that a capture at this moment goes to. Writes nothing.
    Result<std::string, CaptureError> journalPath(TimePoint now) const;
    /// The capture as one block, with its line feed.
    static std::string block(std::string_view text);
    /// Sentences about settings of the graph itself that make the program read its journals elsewhere.
    std::vector<std::string> warnings() const;

private:
    std::string graph() const;
    const Dependencies to_;
    const NoteAppend notes_{to_.files, "LogseqTarget", fileFailed};
    const std::string commandName_ = word;
};
} // namespace snipwren
