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

namespace snipwren {
/// `//logseq`: appends the capture as a block to today's journal page; a capture that begins with "todo" becomes a task.
class LogseqTarget final : public CaptureTarget {
public:
    static constexpr const char* graphKey = "logseqGraphPath";
    /// The journal's file name, as a Unicode date pattern.
    static constexpr const char* journalPattern = "yyyy_MM_dd";

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const UserDefaults& defaults;
        const Clock& clock;
        const Calendar& calendar;
        Log& log;
    };
    enum Code { noGraphConfigured = 1, fileFailed = 2 };

    explicit LogseqTarget(const Dependencies& dependencies) : to_(dependencies) {}

    const std::string& commandName() const override;
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                    std::stop_token stop) override;

    /// The journal that a capture at this moment goes to. Writes nothing.
    Result<std::string, CaptureError> journalPath(TimePoint now) const;
    /// The capture as one block, with its line feed.
    static std::string block(std::string_view text);
    /// Sentences about settings of the graph itself that make the program read its journals elsewhere.
    std::vector<std::string> warnings() const;

private:
    std::string graph() const;
    Dependencies to_;
};
} // namespace snipwren
