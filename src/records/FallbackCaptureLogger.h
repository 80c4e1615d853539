#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/FileIO.h"

namespace snipwren {
class NotificationCenter;
struct Paths;

/// The recovery log: one line per capture that did not reach its target, in an owner-only file that grows until the user
/// clears it. Holds nothing open between calls and keeps nothing in memory; several programs may write at once. Thread
/// safe.
class FallbackCaptureLogger {
public:
    /// Posted without payload after every write and every clear.
    static constexpr const char* logChangedNotification = "FallbackCaptureLogChanged";
    static constexpr std::size_t defaultLimit = 500;
    /// Room kept on the disk, so that a full one still takes the next captures.
    static constexpr std::size_t reserveSize = 256 * 1024;

    struct Entry {
        /// The timestamp as written, "#" and the line's number from 0.
        std::string id;
        TimePoint timestamp;
        std::string target;
        std::string errorDescription;
        std::string text;
        std::string rawLine;
        friend bool operator==(const Entry&, const Entry&) = default;
    };

    FallbackCaptureLogger(FileIO& files, const Paths& paths, const Clock& clock, NotificationCenter& notifications);

    std::string logFilePath() const;
    /// Sets the reserve aside; called at start-up. A disk without room for it is not an error.
    void prepare();
    /// Gives the reserve up for something as important; false when there is none.
    bool giveUpReserve();
    /// True when the text is on the disk. Blank text is never written.
    bool saveFallback(std::string_view text, std::string_view target, std::string_view errorDescription);
    /// The writer beneath saveFallback, for another file and moment.
    FileIO::Answer<void> writeEntry(std::string_view text, std::string_view target, std::string_view errorDescription,
                                    const std::string& file, TimePoint now);
    /// Newest first. Lines that are no records are skipped.
    std::vector<Entry> readEntries(const std::string& file, std::size_t limit = defaultLimit) const;
    std::vector<Entry> readEntries(std::size_t limit = defaultLimit) const { return readEntries(logFilePath(), limit); }
    FileIO::Answer<void> clearLog(const std::string& file);
    FileIO::Answer<void> clearLog() { return clearLog(logFilePath()); }

    static std::string recordLine(std::string_view text, std::string_view target, std::string_view errorDescription,
                                  TimePoint now);
    static std::optional<Entry> parseLine(std::string_view line, std::size_t lineNumber);

private:
    FileIO::Answer<void> appendLine(const std::string& file, const std::string& line);
    FileIO::Answer<void> writeAround(const std::string& file, const std::string& line, const FileError& fault);
    std::string reservePath() const;

    FileIO& files_;
    const Paths& paths_;
    const Clock& clock_;
    NotificationCenter& notifications_;
};
} // namespace snipwren
