#include "targets/ObsidianTarget.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "base/FolderLock.h"
#include "base/Text.h"
#include "targets/MissingPath.h"
#include "targets/TargetErrors.h"

namespace snipwren {
namespace {
constexpr std::uint64_t largestConfiguration = 1024 * 1024;
constexpr std::string_view extension = ".md";

std::string withExtension(std::string path) {
    if (path.size() < extension.size() || path.substr(path.size() - extension.size()) != extension) path += extension;
    return path;
}

/// The path below the root; none when it leads out of it or cannot name a file.
std::optional<std::string> inside(const std::string& root, const std::string& folder, const std::string& name) {
    if (folder.find('\0') != std::string::npos || name.find('\0') != std::string::npos) return std::nullopt;
    int depth = 0;
    const std::string relative = folder + "/" + name;
    for (const std::string_view part : split(relative, '/')) {
        if (part == "..") --depth;
        if (!part.empty() && part != "." && part != "..") ++depth;
        if (depth < 0) return std::nullopt;
    }
    return joinedPath(joinedPath(root, folder), name);
}

CaptureError failure(int code, std::string description) { return {"ObsidianTarget", code, std::move(description)}; }

CaptureError leavesVault(const char* what, const std::string& value) {
    return failure(ObsidianTarget::outsideVault, std::string("The daily notes ") + what + " \"" + value
                                                     + "\" leads out of the Obsidian vault. Correct it in Obsidian's "
                                                       "daily notes settings.");
}
} // namespace

std::string ObsidianTarget::vaultSetting() const {
    const std::string configured(trimmed(to_.defaults.string(vaultKey).value_or("")));
    if (!configured.empty()) return configured;
    for (const std::string& folder : to_.defaults.strings(knowledgeFoldersKey).value_or(std::vector<std::string>()))
        if (const std::string path = expandedTilde(folder, to_.paths.home); ObsidianVaultPath::isVault(path, to_.files))
            return path;
    return {};
}

ObsidianTarget::DailyNotes ObsidianTarget::dailyNotes(const std::string& root) const {
    using Json = nlohmann::json;
    const std::string path = joinedPath(root, ".obsidian/daily-notes.json");
    const auto size = to_.files.size(path);
    if (!size || *size > largestConfiguration) return {};
    const auto bytes = to_.files.read(path);
    if (!bytes) return {};
    const Json config = Json::parse(*bytes, nullptr, false);
    if (!config.is_object()) return {}; // A damaged configuration never fails a capture.
    const auto value = [&](const char* key) {
        const auto found = config.find(key);
        return found != config.end() && found->is_string() ? std::string(trimmed(found->get_ref<const std::string&>()))
                                                           : std::string();
    };
    return {value("folder"), value("format"), value("template")};
}

std::string ObsidianTarget::configuredFormat() const {
    const auto vault = ObsidianVaultPath::resolve(vaultSetting(), to_.files, to_.paths.home);
    return vault ? dailyNotes(vault->root).format : std::string();
}

Result<ObsidianTarget::Destination, CaptureError> ObsidianTarget::destination(TimePoint now) const {
    auto vault = ObsidianVaultPath::resolve(vaultSetting(), to_.files, to_.paths.home);
    if (!vault) return unexpected(vault.error());
    Destination destination{*std::move(vault), {}, {}, {}};
    const std::string& root = destination.vault.root;
    destination.configured = dailyNotes(root);
    const DailyNotes& configured = destination.configured;

    std::string folder(trimmed(to_.defaults.string(folderKey).value_or("")));
    if (folder.empty()) folder = configured.folder;
    const std::string pattern = configured.format.empty() ? "yyyy-MM-dd" : datePattern(configured.format);
    const std::string name = to_.calendar.formatPosix(now, pattern);
    if (name.empty() || name.back() == '/')
        return unexpected(failure(noFileName, "The daily notes format \"" + configured.format
                                                  + "\" gives no file name. Try: YYYY-MM-DD in Obsidian's daily notes "
                                                    "settings."));
    auto note = inside(root, folder, withExtension(name));
    if (!note && !inside(root, folder, "")) return unexpected(leavesVault("folder", folder));
    if (!note) return unexpected(leavesVault("format", configured.format));
    destination.note = *std::move(note);
    if (configured.templatePath.empty()) return destination;
    auto file = inside(root, "", withExtension(configured.templatePath));
    if (!file) return unexpected(leavesVault("template", configured.templatePath));
    destination.templateFile = *std::move(file);
    return destination;
}

std::optional<std::string> ObsidianTarget::readiness() const {
    return missingPathFailure("Obsidian vault", word, expandedTilde(vaultSetting(), to_.paths.home), to_.files);
}

CaptureFailureGuide ObsidianTarget::failureGuide(std::string_view) const {
    return {"Capture Targets", "obsidianVault", "Open Obsidian settings"};
}

Result<CaptureReceipt, CaptureError> ObsidianTarget::send(const std::string& text, const std::optional<PickerOption>&,
                                                          CaptureAttempt& attempt) {
    const std::string capture(trimmed(text));
    if (capture.empty()) return CaptureReceipt();
    if (attempt.stop().stop_requested()) return unexpected(cancelledCapture(commandName_));
    auto line = notes_.arrived(attempt);
    if (!line) return unexpected(line.error());
    if (!*line) {
        const auto destination = this->destination(attempt.confirmedAt());
        if (!destination) return unexpected(destination.error());
        logConfiguration(*destination);
        const std::string entry =
            "- [" + to_.calendar.formatPosix(attempt.confirmedAt(), "HH:mm") + "] " + capture + "\n";
        auto appended = notes_.append(attempt, destination->note, entry, [&] { return createNote(*destination); });
        if (!appended) return unexpected(appended.error());
        *line = *std::move(appended);
    }
    to_.log.line("📝 ObsidianTarget: Successfully captured line to Daily Note at: " + (*line)->path);
    return CaptureReceipt{"Added to " + fileName((*line)->path), (*line)->path, std::nullopt, false,
                          (*line)->encoded()};
}

Result<std::string, CaptureError> ObsidianTarget::undo(const std::string&, const std::string& undo, std::stop_token) {
    return notes_.takeOut(undo);
}

void ObsidianTarget::logConfiguration(const Destination& destination) const {
    const DailyNotes& configured = destination.configured;
    if (destination.vault.walkedUpFromSubfolder)
        to_.log.line("📝 ObsidianTarget: Configured path was inside the vault; using vault root '"
                     + destination.vault.root + "'");
    if (!configured.folder.empty())
        to_.log.line("📝 ObsidianTarget: Auto-detected daily notes folder '" + collapsedWhitespace(configured.folder)
                     + "' from config");
    if (!configured.format.empty())
        to_.log.line("📝 ObsidianTarget: Auto-detected custom date format '" + collapsedWhitespace(configured.format)
                     + "'");
    if (!configured.templatePath.empty())
        to_.log.line("📝 ObsidianTarget: Auto-detected template path '" + collapsedWhitespace(configured.templatePath)
                     + "'");
}
Result<void, CaptureError> ObsidianTarget::createNote(const Destination& destination) {
    const std::string folder = parentPath(destination.note);
    if (const auto made = to_.files.createFolders(folder); !made) return unexpected(notes_.failure(made.error()));
    if (destination.templateFile.empty()) return {}; // The line itself makes the note.
    // Two first captures at once: the second must not write the template over the first's line.
    const FolderLock lock(folder);
    if (to_.files.exists(destination.note) || !to_.files.exists(destination.templateFile)) return {};
    const auto content = to_.files.read(destination.templateFile);
    if (!content) return unexpected(notes_.failure(content.error()));
    if (const auto written = to_.files.writeAtomic(destination.note, *content); !written)
        return unexpected(notes_.failure(written.error()));
    to_.log.line("📝 ObsidianTarget: Successfully initialized daily note using template '"
                 + collapsedWhitespace(destination.configured.templatePath) + "'");
    return {};
}

std::string ObsidianTarget::datePattern(std::string_view momentFormat) {
    // The order matters: the day of the month is turned first, so that the weekday's letters are found afterwards.
    std::string pattern(momentFormat);
    for (const auto& [from, to] : {std::pair{"YYYY", "yyyy"}, {"DD", "dd"}, {"D", "d"}, {"dddd", "EEEE"}, {"ddd", "E"}})
        pattern = replacedAll(pattern, from, to);
    return pattern;
}

std::vector<std::string> ObsidianTarget::tokensNotCarriedOver(std::string_view momentFormat) {
    // Longest first: the format is read from left to right, always taking the longest token.
    static constexpr std::string_view tokens[] = {
        "YYYYYY", "YYYYY", "YYYY", "DDDD", "dddd", "MMMM", "gggg", "GGGG", "LLLL", "DDDo", "DDD", "ddd", "MMM",
        "LLL",    "LTS",   "YY",   "DD",   "Do",   "dd",   "do",   "MM",   "Mo",   "wo",   "ww",  "Wo",  "WW",
        "Qo",     "HH",    "hh",   "mm",   "ss",   "kk",   "ZZ",   "LT",   "LL",   "gg",   "GG"};
    static constexpr std::string_view carried[] = {"YYYY", "MMMM", "MMM", "MM", "M",  "DD", "D",  "dddd", "ddd",
                                                   "HH",   "H",    "hh",  "h",  "mm", "m",  "ss", "s",    "Q"};
    std::vector<std::string> lost;
    for (std::size_t at = 0; at < momentFormat.size();) {
        std::string_view token = momentFormat.substr(at, 1);
        if (token == "[") { // Text in brackets is literal there; here its letters would be read as tokens.
            const std::size_t end = momentFormat.find(']', at);
            token = momentFormat.substr(at, end == std::string_view::npos ? 1 : end - at + 1);
        }
        for (const std::string_view longer : tokens) {
            if (token.size() > 1 || momentFormat.substr(at, longer.size()) != longer) continue;
            token = longer;
            break;
        }
        at += token.size();
        const char first = token.front();
        const bool isLetter = (first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z') || first == '[';
        if (!isLetter || std::find(std::begin(carried), std::end(carried), token) != std::end(carried)) continue;
        if (std::find(lost.begin(), lost.end(), token) == lost.end()) lost.emplace_back(token);
    }
    return lost;
}
} // namespace snipwren
