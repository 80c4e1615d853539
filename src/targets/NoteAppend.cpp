#include "targets/NoteAppend.h"

#include <algorithm>
#include <cerrno>

#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;
constexpr std::size_t npos = std::string_view::npos;

bool beginsLine(std::string_view content, std::size_t at) { return at == 0 || content[at - 1] == '\n'; }

/// Where the whole line stands, at `from` or later. The last line of a note may lack its line feed: editors take it away.
std::size_t lineAt(std::string_view content, std::string_view line, std::size_t from) {
    const std::string_view body = line.substr(0, line.size() - 1);
    for (std::size_t at = content.find(body, from); at != npos; at = content.find(body, at + 1)) {
        const std::size_t end = at + body.size();
        if (beginsLine(content, at) && (end == content.size() || content[end] == '\n')) return at;
    }
    return npos;
}

std::size_t lastLineAt(std::string_view content, std::string_view line) {
    std::size_t last = npos;
    for (std::size_t at = lineAt(content, line, 0); at != npos; at = lineAt(content, line, at + 1)) last = at;
    return last;
}

/// How much of the line the note ends with; 0 when the end is no piece of it or older than `from`.
std::size_t cutOffLength(std::string_view content, std::string_view line, std::size_t from) {
    for (std::size_t length = std::min(line.size() - 1, content.size() - from); length > 0; --length) {
        const std::size_t at = content.size() - length;
        if (beginsLine(content, at) && content.substr(at) == line.substr(0, length)) return length;
    }
    return 0;
}

FileIO::AppendOptions durable(bool onFreshLine) {
    FileIO::AppendOptions options;
    options.onFreshLine = onFreshLine;
    options.durable = true;
    return options;
}
} // namespace

std::string NoteLine::encoded() const {
    return Json{{"path", path}, {"size", sizeBefore}, {"line", line}}.dump(-1, ' ', false,
                                                                           Json::error_handler_t::replace);
}

std::optional<NoteLine> NoteLine::decoded(const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object()) return std::nullopt;
    const auto path = json.find("path"), size = json.find("size"), line = json.find("line");
    if (path == json.end() || !path->is_string() || size == json.end() || !size->is_number_unsigned()
        || line == json.end() || !line->is_string())
        return std::nullopt;
    NoteLine decoded{path->get<std::string>(), size->get<std::uint64_t>(), line->get<std::string>()};
    if (decoded.line.empty() || decoded.line.back() != '\n') return std::nullopt;
    return decoded;
}

Result<std::optional<NoteLine>, CaptureError> NoteAppend::arrived(const CaptureAttempt& attempt) const {
    const auto earlier = attempt.earlierNote() ? NoteLine::decoded(*attempt.earlierNote()) : std::nullopt;
    if (!earlier) return std::nullopt;
    const auto content = files_.read(earlier->path);
    if (!content && content.error().code == ENOENT) return std::nullopt;
    if (!content) return unexpected(failure(content.error()));
    // A note that has become shorter was rewritten: the line may stand anywhere.
    const bool isRewritten = content->size() < earlier->sizeBefore;
    const std::size_t from = isRewritten ? 0 : static_cast<std::size_t>(earlier->sizeBefore);
    const std::size_t at = lineAt(*content, earlier->line, from);
    const bool isWhole = at != npos;
    std::string_view rest;
    if (isWhole) {
        if (at + earlier->line.size() > content->size()) rest = "\n";
    } else {
        const std::size_t length = isRewritten ? 0 : cutOffLength(*content, earlier->line, from);
        if (length == 0) return std::nullopt;
        rest = std::string_view(earlier->line).substr(length);
    }
    // Also without a rest: whether the earlier attempt came to flush its line is not known.
    const auto flushed = files_.append(earlier->path, rest, durable(false));
    if (!flushed && !isWhole) return unexpected(failure(flushed.error()));
    return earlier;
}

Result<NoteLine, CaptureError> NoteAppend::append(CaptureAttempt& attempt, const std::string& path,
                                                  const std::string& line,
                                                  const std::function<Result<void, CaptureError>()>& create) const {
    const auto earlier = attempt.earlierNote() ? NoteLine::decoded(*attempt.earlierNote()) : std::nullopt;
    // What is noted must be, byte for byte, what is written.
    const NoteLine entry{path, files_.size(path).value_or(0), earlier ? earlier->line : sanitizedUtf8(line)};
    if (const auto noted = attempt.note(entry.encoded()); !noted) return unexpected(noted.error());
    if (const auto created = create(); !created) return unexpected(created.error());
    if (const auto appended = appendLine(files_, path, entry.line); !appended)
        return unexpected(failure(appended.error()));
    return entry;
}

Result<std::string, CaptureError> NoteAppend::takeOut(const std::string& undo) const {
    const auto entry = NoteLine::decoded(undo);
    const std::string name = entry ? fileName(entry->path) : "the note";
    const auto changed = [&] {
        return unexpected(CaptureError{domain_, code_,
                                       "The line in " + name
                                           + " has been changed since, so nothing was undone. Open "
                                             "the note to change it by hand."});
    };
    if (!entry || !files_.exists(entry->path)) return changed(); // Rewriting would make the note.
    bool found = false;
    const auto rewritten = files_.rewrite(entry->path, [&](std::string content) -> std::optional<std::string> {
        std::size_t at = lineAt(content, entry->line, static_cast<std::size_t>(entry->sizeBefore));
        if (at == npos) at = lastLineAt(content, entry->line);
        found = at != npos;
        if (!found) return std::nullopt;
        content.erase(at, entry->line.size());
        return content;
    });
    if (!rewritten) return unexpected(failure(rewritten.error()));
    if (!found) return changed();
    return "The line was taken out of " + name + ".";
}

FileIO::Answer<void> NoteAppend::appendLine(FileIO& files, const std::string& path, std::string_view line) {
    auto appended = files.append(path, line, durable(true));
    const bool couldNotOpen = !appended && (appended.error().code == EACCES || appended.error().code == EPERM);
    if (!couldNotOpen) return appended;
    return files.rewrite(path, [line](std::string whole) {
        if (!whole.empty() && whole.back() != '\n') whole += '\n';
        return std::optional(whole.append(line));
    });
}
} // namespace snipwren
