#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/FileIO.h"
#include "capture/CaptureTarget.h"

namespace snipwren {
/// One captured line and the note that it goes to: what an attempt writes down before it touches the note, and what
/// taking the line out again needs.
struct NoteLine {
    std::string path;
    /// The note's size in bytes before; 0 when there was none.
    std::uint64_t sizeBefore = 0;
    /// With its line feed at the end; a capture of several lines has others inside.
    std::string line;
    friend bool operator==(const NoteLine&, const NoteLine&) = default;

    std::string encoded() const;
    /// None for a text that encoded() did not make.
    static std::optional<NoteLine> decoded(const std::string& text);
};

/// Adds whole lines to notes that other programs have open too: by appending, so that the rest of the note is never
/// rewritten and two writers leave two whole lines. Each capture's line is added once, however often its delivery was
/// cut off.
class NoteAppend {
public:
    /// `domain` and `code` are those of the errors.
    NoteAppend(FileIO& files, const char* domain, int code) : files_(files), domain_(domain), code_(code) {}

    /// The line of an earlier attempt, when it stands in its note; what a cut-off write left out has been added then.
    /// None when this attempt is to append it.
    Result<std::optional<NoteLine>, CaptureError> arrived(const CaptureAttempt& attempt) const;
    /// Notes the attempt, lets `create` make the note (an existing one it leaves alone) and appends, flushed to the disk.
    /// An earlier attempt's line, which has the capture's own time, goes before `line`.
    Result<NoteLine, CaptureError> append(CaptureAttempt& attempt, const std::string& path, const std::string& line,
                                          const std::function<Result<void, CaptureError>()>& create) const;
    /// Takes the line out again; `undo` is an encoded NoteLine. The sentence for the user.
    Result<std::string, CaptureError> takeOut(const std::string& undo) const;

    CaptureError failure(const FileError& error) const { return {domain_, code_, error.description}; }

    /// The line, which ends in a line feed, begins on a line of its own and is on the disk afterwards. A note that may not
    /// be opened for writing is replaced as a whole, where its folder allows that.
    static FileIO::Answer<void> appendLine(FileIO& files, const std::string& path, std::string_view line);

private:
    FileIO& files_;
    const char* const domain_;
    const int code_;
};
} // namespace snipwren
