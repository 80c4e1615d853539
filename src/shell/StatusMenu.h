#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QMenu>

namespace snipwren {
/// The menu of the status item, rebuilt from what the provider answers whenever it is about to be shown or something
/// changed. Main thread.
class StatusMenu {
public:
    struct Row {
        std::string id;
        std::string text;
    };
    struct Contents {
        /// "tea · 1:05 remaining"; none when nothing is counted down.
        std::optional<std::string> countdown;
        bool isPaused = false;
        /// Why no trigger is heard, or which target keeps captures waiting; empty when all is well.
        std::string problem;
        /// A newer release waits to be installed.
        bool hasUpdate = false;
        std::vector<std::string> commands;
        std::vector<Row> lastCaptures;
        std::vector<Row> scheduled;
        std::vector<Row> recovery;
    };
    struct Actions {
        std::function<Contents()> contents;
        std::function<void(const std::string&)> capture;
        std::function<void(bool)> setPaused;
        std::function<void(const std::string&)> copyCapture;
        std::function<void(const std::string&)> cancelScheduled;
        std::function<void(const std::string&)> retry;
        std::function<void()> undo;
        std::function<void()> openRecoveryLog;
        std::function<void()> openSettingsFile;
        std::function<void()> checkForUpdates;
        std::function<void()> installUpdate;
        std::function<void()> quit;
    };
    static constexpr int maxTextLength = 48;

    explicit StatusMenu(Actions actions);
    QMenu& menu() { return menu_; }
    void rebuild();
    /// At the pointer, for desktops without a place for status items.
    void popup();

private:
    void add(QMenu& menu, const QString& text, std::function<void()> action);
    void addRows(const QString& title, const QString& empty, const std::vector<Row>& rows,
                 const std::function<void(const std::string&)>& action);

    const Actions actions_;
    QMenu menu_;
};
} // namespace snipwren
