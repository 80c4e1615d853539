#include "records/FallbackCaptureLogger.h"

#include <algorithm>
#include <cerrno>

#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/Text.h"

namespace snipwren {
namespace {
constexpr std::string_view targetMarker = "target=";
constexpr std::string_view errorMarker = " error=\"";
constexpr std::string_view textMarker = " text=\"";

std::string escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (const char letter : text) {
        if (letter == '\n') {
            out += "\\n";
            continue;
        }
        if (letter == '\\' || letter == '"') out += '\\';
        out += letter;
    }
    return out;
}

std::string unescaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
            out += text[i] == 'n' ? '\n' : text[i];
        } else {
            out += text[i];
        }
    }
    return out;
}

/// Where the quote that is not escaped stands.
std::size_t closingQuote(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            return i;
        }
    }
    return std::string_view::npos;
}

std::string_view withoutBlanksAndTabs(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// The escaped field that begins after `marker`; `rest` moves past its closing quote.
std::optional<std::string_view> fieldAfter(std::string_view& rest, std::string_view marker) {
    const std::size_t start = rest.find(marker);
    if (start == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(start + marker.size());
    const std::size_t end = closingQuote(rest);
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return field;
}

bool isDiskFull(const FileError& error) { return error.code == ENOSPC || error.code == EDQUOT; }
} // namespace

FallbackCaptureLogger::FallbackCaptureLogger(FileIO& files, const Paths& paths, const Clock& clock,
                                             NotificationCenter& notifications)
    : files_(files),
      paths_(paths),
      clock_(clock),
      notifications_(notifications) {}

std::string FallbackCaptureLogger::logFilePath() const {
    return joinedPath(paths_.applicationSupport, "fallback_captures.log");
}

std::string FallbackCaptureLogger::reservePath() const {
    return joinedPath(paths_.applicationSupport, "fallback_captures.reserve");
}

void FallbackCaptureLogger::prepare() {
    if (files_.size(reservePath()).value_or(0) == reserveSize) return;
    if (!files_.createFolders(paths_.applicationSupport, privateFolderMode)) return;
    // Not zeros: some file systems keep no blocks for those.
    std::string filler(reserveSize, '\0');
    for (std::size_t i = 0; i < filler.size(); ++i) filler[i] = static_cast<char>('A' + i * 7 % 61 % 26);
    (void)files_.writeAtomic(reservePath(), filler, privateFileMode);
}

bool FallbackCaptureLogger::giveUpReserve() {
    return files_.exists(reservePath()) && files_.remove(reservePath()).has_value();
}

bool FallbackCaptureLogger::saveFallback(std::string_view text, std::string_view target,
                                         std::string_view errorDescription) {
    const std::string_view kept = trimmed(text);
    if (kept.empty()) return false;
    if (!writeEntry(kept, target, errorDescription, logFilePath(), clock_.now())) return false;
    notifications_.post(logChangedNotification);
    return true;
}

std::string FallbackCaptureLogger::recordLine(std::string_view text, std::string_view target,
                                              std::string_view errorDescription, TimePoint now) {
    // The file is UTF-8 whatever a program handed us: a replaced byte is better than a lost capture.
    return sanitizedUtf8("[" + isoUtc(now) + "] target=" + std::string(target) + " error=\"" + escaped(errorDescription)
                         + "\" text=\"" + escaped(text) + "\"\n");
}

FileIO::Answer<void> FallbackCaptureLogger::writeEntry(std::string_view text, std::string_view target,
                                                       std::string_view errorDescription, const std::string& file,
                                                       TimePoint now) {
    if (auto made = files_.createFolders(parentPath(file), privateFolderMode); !made) return made;
    const std::string line = recordLine(text, target, errorDescription, now);
    auto written = appendLine(file, line);
    if (written) return written;
    if (isDiskFull(written.error()) && giveUpReserve()) return appendLine(file, line);
    return writeAround(file, line, written.error());
}

FileIO::Answer<void> FallbackCaptureLogger::appendLine(const std::string& file, const std::string& line) {
    (void)files_.setMode(file, privateFileMode); // A file that is not there yet, or not ours: then append tells.
    // A program that was killed may have left half a line.
    return files_.append(file, line, {.mode = privateFileMode, .onFreshLine = true, .durable = true});
}

/// The file cannot be opened for writing: another user's, or something else in its place. A new one takes over what it
/// holds; what cannot be read is kept under another name.
FileIO::Answer<void> FallbackCaptureLogger::writeAround(const std::string& file, const std::string& line,
                                                        const FileError& fault) {
    if (fault.code != EACCES && fault.code != EPERM && fault.code != EISDIR) return unexpected(fault);
    if (auto content = files_.read(file)) {
        if (!content->empty() && content->back() != '\n') *content += '\n';
        return files_.writeAtomic(file, *content + line, privateFileMode);
    }
    std::string aside = file + ".unreadable";
    for (int number = 2; files_.exists(aside); ++number) aside = file + ".unreadable-" + std::to_string(number);
    if (auto moved = files_.rename(file, aside); !moved) return moved;
    return appendLine(file, line);
}

std::vector<FallbackCaptureLogger::Entry> FallbackCaptureLogger::readEntries(const std::string& file,
                                                                             std::size_t limit) const {
    std::vector<Entry> entries;
    const auto content = files_.read(file);
    if (!content) return entries;
    const std::vector<std::string_view> lines = split(*content, '\n');
    for (std::size_t number = lines.size(); number-- > 0 && entries.size() < limit;)
        if (auto entry = parseLine(lines[number], number)) entries.push_back(std::move(*entry));
    return entries;
}

std::optional<FallbackCaptureLogger::Entry> FallbackCaptureLogger::parseLine(std::string_view line,
                                                                             std::size_t lineNumber) {
    line = trimmed(line);
    if (line.empty() || line.front() != '[') return std::nullopt;
    // One damaged line must not make the others unreadable.
    if (!isValidUtf8(line)) return parseLine(sanitizedUtf8(line), lineNumber);
    const std::size_t bracket = line.find(']');
    if (bracket == std::string_view::npos) return std::nullopt;
    const std::string_view stamp = line.substr(1, bracket - 1);
    const auto timestamp = parsedIsoUtc(stamp);
    if (!timestamp) return std::nullopt;

    std::string_view rest = withoutBlanksAndTabs(line.substr(bracket + 1));
    const std::size_t targetStart = rest.find(targetMarker);
    if (targetStart == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(targetStart + targetMarker.size());
    const std::string_view target = trimmed(rest.substr(0, rest.find(errorMarker)));
    const auto error = fieldAfter(rest, errorMarker);
    if (!error || target.empty()) return std::nullopt;
    const auto text = fieldAfter(rest, textMarker);
    if (!text) return std::nullopt;
    return Entry{.id = std::string(stamp) + "#" + std::to_string(lineNumber),
                 .timestamp = *timestamp,
                 .target = std::string(target),
                 .errorDescription = unescaped(*error),
                 .text = unescaped(*text),
                 .rawLine = std::string(line)};
}

FileIO::Answer<void> FallbackCaptureLogger::clearLog(const std::string& file) {
    if (auto made = files_.createFolders(parentPath(file), privateFolderMode); !made) return made;
    if (auto written = files_.writeAtomic(file, "", privateFileMode); !written) return written;
    notifications_.post(logChangedNotification);
    return {};
}
} // namespace snipwren
