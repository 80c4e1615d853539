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
#include "targets/ObsidianVaultPath.h"

namespace snipwren {
/// `//obsidian`: appends a time-stamped bullet to the daily note of the user's vault, which it finds as the vault's
/// own daily-notes settings say. Everything read from the vault is data of other programs: nothing is written outside it.
class ObsidianTarget final : public CaptureTarget {
public:
    static constexpr const char* word = "obsidian";
    static constexpr CaptureTargetHint words{"OBSIDIAN", "Appends to today's daily note", "refactor this into a class",
                                             ""};
    static constexpr const char* vaultKey = "obsidianVaultPath";
    static constexpr const char* folderKey = "obsidianDailyNotesFolder";
    static constexpr const char* knowledgeFoldersKey = "knowledgeFolders";

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const UserDefaults& defaults;
        const Calendar& calendar;
        Log& log;
    };
    /// The vault's `.obsidian/daily-notes.json`; empty texts where it says nothing.
    struct DailyNotes {
        std::string folder;
        std::string format;
        std::string templatePath;
    };
    struct Destination {
        ObsidianVaultPath::Resolution vault;
        DailyNotes configured;
        std::string note;
        /// Empty when none is configured.
        std::string templateFile;
    };
    enum Code { outsideVault = 4, noFileName = 5, fileFailed = 6 };

    explicit ObsidianTarget(const Dependencies& dependencies) : to_(dependencies) {}

    const std::string& commandName() const override { return commandName_; }
    const CaptureTargetHint* hint() const override { return &words; }
    std::optional<std::string> readiness() const override;
    CaptureFailureGuide failureGuide(std::string_view detail) const override;
    Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) override;
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                           std::stop_token stop) override;

    /// The configured folder, or the first knowledge folder that is a vault; empty when there is neither.
    std::string vaultSetting() const;
    /// Where a capture at this moment goes. Writes nothing.
    Result<Destination, CaptureError> destination(TimePoint now) const;

    /// The date format in the vault's settings; empty when there is none.
    std::string configuredFormat() const;

    /// The date notation of the vault's settings in that of Unicode date patterns, as far as it is carried over.
    static std::string datePattern(std::string_view momentFormat);
    /// The tokens of the format that mean something else, or nothing, after that.
    static std::vector<std::string> tokensNotCarriedOver(std::string_view momentFormat);

private:
    DailyNotes dailyNotes(const std::string& root) const;
    void logConfiguration(const Destination& destination) const;
    Result<void, CaptureError> createNote(const Destination& destination);

    const Dependencies to_;
    const NoteAppend notes_{to_.files, "ObsidianTarget", fileFailed};
    const std::string commandName_ = word;
};
} // namespace snipwren
