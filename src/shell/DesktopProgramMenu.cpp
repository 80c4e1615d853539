// What the status menu shows and does.
#include <QCoreApplication>

#include "shell/DesktopProgram.h"

namespace snipwren {
namespace {
std::string commandAndText(const std::string& command, const std::string& text) { return "//" + command + " " + text; }
} // namespace

StatusMenu::Actions DesktopProgram::menuActions() {
    return {.contents = [this] { return menuContents(); },
            .capture =
                [this](const std::string& command) {
                    if (CaptureTarget* const target = application_->targets().find(command))
                        application_->router().enterCaptureModeUI(*target);
                },
            .setPaused = [this](bool paused) { setPaused(paused); },
            .copyCapture = [this](const std::string& id) { copyCapture(id); },
            .cancelScheduled =
                [this](const std::string& id) {
                    application_->scheduling().cancelInBackground(
                        id, [this](const std::string& problem) { notices_.announceFault(problem); });
                },
            .retry = [this](const std::string& id) { retry(id); },
            .undo =
                [this] {
                    undo({}, [this](bool done, const std::string& sentence) {
                        done ? notices_.show({sentence, "", "", -1}) : notices_.announceFault(sentence);
                    });
                },
            .openRecoveryLog = [this] { openRecoveryLog(); },
            .openSettingsFile = [this] { openSettingsFile(); },
            .checkForUpdates = [this] { updates_->checker().checkForUpdatesManually(); },
            .installUpdate = [this] { updates_->checker().restartToUpdate(); },
            .quit = [] { QCoreApplication::quit(); }};
}

StatusMenu::Contents DesktopProgram::menuContents() {
    StatusMenu::Contents contents;
    contents.isPaused = isPaused_;
    contents.hasUpdate = updates_->checker().hasPendingUpdate();
    if (application_->tap().isTapPermanentlyDisabled())
        contents.problem = "The keyboard listener has stopped. Pause and go on to start it again.";
    else
        contents.problem = backlogSentence();
    contents.commands = application_->targets().commandWords();
    for (const CaptureHistoryEntry& entry : application_->history().recentEntries("", shownCaptures))
        contents.lastCaptures.push_back({std::to_string(entry.id), commandAndText(entry.target, entry.text)});
    const ActiveCountdownController& countdown = application_->scheduling().countdown();
    if (const auto& current = countdown.current())
        contents.countdown = current->capture.title + " · " + current->description;
    for (const PendingScheduledCapture& pending : countdown.pending())
        contents.scheduled.push_back(
            {pending.id, pending.title
                             + (pending.fireDate ? " · " + environment_.calendar().formatDateTime(*pending.fireDate)
                                                 : std::string())});
    for (const auto& entry : application_->recoveryLog().readEntries(shownCaptures))
        contents.recovery.push_back({entry.id, commandAndText(entry.target, entry.text)});
    return contents;
}

void DesktopProgram::copyCapture(const std::string& id) {
    for (const CaptureHistoryEntry& entry : application_->history().recentEntries("", shownCaptures)) {
        if (std::to_string(entry.id) != id) continue;
        const bool copied = pasteboard_.setString(entry.text);
        notices_.show({copied ? "Copied" : "The clipboard did not take the text", entry.text, "", -1});
    }
}

/// Opens capture mode with the text again, so that it can be mended, and sent where it did not arrive.
void DesktopProgram::retry(const std::string& id) {
    for (const auto& entry : application_->recoveryLog().readEntries(shownCaptures)) {
        if (entry.id != id) continue;
        CaptureTarget* const target = application_->targets().find(entry.target);
        if (target) return application_->router().enterCaptureModeUI(*target, entry.text);
        notices_.announceFault("There is no target //" + entry.target + " any more");
        return;
    }
}
} // namespace snipwren
