#include "targets/LogseqTarget.h"

#include <algorithm>

#include "base/Text.h"
#include "targets/MissingPath.h"
#include "targets/TargetErrors.h"

namespace snipwren {
namespace {
constexpr std::string_view journalsFolder = "journals";
constexpr std::uint64_t largestConfiguration = 1024 * 1024;

/// The text that follows the keyword in a configuration in EDN; comments and other texts are stepped over.
std::optional<std::string> ednText(std::string_view edn, std::string_view keyword) {
    bool found = false;
    for (std::size_t at = 0; at < edn.size();) {
        const char c = edn[at];
        if (c == ';') {
            at = std::min(edn.find('\n', at), edn.size());
        } else if (c == '"') {
            std::string text;
            for (++at; at < edn.size() && edn[at] != '"'; ++at) {
                if (edn[at] == '\\' && at + 1 < edn.size()) ++at;
                text += edn[at];
            }
            ++at;
            if (found) return text;
        } else if (c == ':') {
            const std::size_t end = std::min(edn.find_first_of(" \t\r\n,;\"()[]{}", at), edn.size());
            found = edn.substr(at, end - at) == keyword;
            at = end;
        } else {
            ++at;
        }
    }
    return std::nullopt;
}
} // namespace

std::string LogseqTarget::graph() const {
    return expandedTilde(trimmed(to_.defaults.string(graphKey).value_or("")), to_.paths.home);
}

Result<std::string, CaptureError> LogseqTarget::journalPath(TimePoint now) const {
    const std::string root = graph();
    if (root.empty())
        return unexpected(CaptureError{"LogseqTarget", noGraphConfigured,
                                       "Logseq Graph Path is not configured. Please set your Logseq Graph Path under "
                                       "Target Configurations in Snipwren Settings."});
    return joinedPath(joinedPath(root, journalsFolder), to_.calendar.formatPosix(now, journalPattern) + ".md");
}

std::optional<std::string> LogseqTarget::readiness() const {
    return missingPathFailure("Logseq graph", word, graph(), to_.files);
}

CaptureFailureGuide LogseqTarget::failureGuide(std::string_view) const {
    return {"Capture Targets", "logseqGraph", "Open Logseq settings"};
}

Result<CaptureReceipt, CaptureError> LogseqTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                        CaptureAttempt& attempt) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return CaptureReceipt();
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    auto line = notes_.arrived(attempt);
    if (!line) return unexpected(line.error());
    if (!*line) {
        const auto path = journalPath(attempt.confirmedAt());
        if (!path) return unexpected(path.error());
        // Appending makes a missing journal, and keeps what another program puts into it at the same moment.
        const auto createFolder = [&]() -> Result<void, CaptureError> {
            if (const auto made = to_.files.createFolders(parentPath(*path)); !made)
                return unexpected(notes_.failure(made.error()));
            return {};
        };
        auto appended = notes_.append(attempt, *path, block(capture), createFolder);
        if (!appended) return unexpected(appended.error());
        *line = *std::move(appended);
    }
    const std::string name = fileName((*line)->path);
    to_.log.line("📝 LogseqTarget: Successfully captured line to Journal at: " + name);
    return CaptureReceipt{"Added to " + name, (*line)->path, std::nullopt, false, (*line)->encoded()};
}

Result<std::string, CaptureError> LogseqTarget::undo(const std::string&, const std::string& undo, std::stop_token) {
    return notes_.takeOut(undo);
}

std::string LogseqTarget::block(std::string_view text) {
    constexpr std::string_view todo = "todo ";
    const std::string start = asciiLowercased(text.substr(0, todo.size()));
    if (start == todo) return "- TODO " + std::string(trimmed(text.substr(todo.size()))) + "\n";
    if (start == "todo") return "- TODO \n";
    return "- " + std::string(text) + "\n";
}

std::vector<std::string> LogseqTarget::warnings() const {
    const std::string path = joinedPath(graph(), "logseq/config.edn");
    const auto size = to_.files.size(path);
    if (graph().empty() || !size || *size > largestConfiguration) return {};
    const auto config = to_.files.read(path);
    if (!config) return {};
    std::vector<std::string> sentences;
    if (const auto name = ednText(*config, ":journal/file-name-format"); name && *name != journalPattern)
        sentences.push_back("This graph names its journal files \"" + *name + "\", but captures go to files named \""
                            + journalPattern + "\". Logseq will not show them on the same page.");
    if (const auto folder = ednText(*config, ":journals-directory"); folder && *folder != journalsFolder)
        sentences.push_back("This graph keeps its journals in \"" + *folder + "\", but captures go to \""
                            + std::string(journalsFolder) + "\".");
    return sentences;
}
} // namespace snipwren
