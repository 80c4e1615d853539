#include "shell/StatusMenu.h"

#include <QCursor>

namespace snipwren {
namespace {
/// One line, without what a menu would take for a mnemonic.
QString menuText(const std::string& text) {
    QString line = QString::fromStdString(text).simplified();
    if (line.size() > StatusMenu::maxTextLength) line = line.left(StatusMenu::maxTextLength - 1) + "…";
    return line.replace("&", "&&");
}
} // namespace

StatusMenu::StatusMenu(Actions actions) : actions_(std::move(actions)), menu_("Snipwren") {
    menu_.setToolTipsVisible(true);
    QObject::connect(&menu_, &QMenu::aboutToShow, &menu_, [this] { rebuild(); });
}

void StatusMenu::add(QMenu& menu, const QString& text, std::function<void()> action) {
    QAction* const row = menu.addAction(text);
    // After the menu is gone: what it does may open a window, or change this menu.
    QObject::connect(
        row, &QAction::triggered, &menu_,
        [action = std::move(action)] {
            if (action) action();
        },
        Qt::QueuedConnection);
}

void StatusMenu::addRows(const QString& title, const QString& empty, const std::vector<Row>& rows,
                         const std::function<void(const std::string&)>& action) {
    QMenu& part = *menu_.addMenu(title);
    if (rows.empty()) part.addAction(empty)->setEnabled(false);
    for (const Row& row : rows)
        add(part, menuText(row.text), [action, id = row.id] {
            if (action) action(id);
        });
}

void StatusMenu::rebuild() {
    const Contents contents = actions_.contents ? actions_.contents() : Contents{};
    menu_.clear();
    if (!contents.problem.empty()) menu_.addAction(menuText(contents.problem))->setEnabled(false);
    if (contents.countdown) menu_.addAction(menuText(*contents.countdown))->setEnabled(false);
    if (!contents.problem.empty() || contents.countdown) menu_.addSeparator();

    QMenu& captures = *menu_.addMenu("Capture");
    for (const std::string& command : contents.commands)
        add(captures, "//" + menuText(command), [this, command] { actions_.capture(command); });
    QAction* const pause = menu_.addAction("Pause Capturing");
    pause->setCheckable(true);
    pause->setChecked(contents.isPaused);
    QObject::connect(
        pause, &QAction::triggered, &menu_, [this](bool on) { actions_.setPaused(on); }, Qt::QueuedConnection);
    menu_.addSeparator();

    add(menu_, "Undo Last Capture", actions_.undo);
    addRows("Last Captures", "None yet", contents.lastCaptures, actions_.copyCapture);
    addRows("Scheduled", "Nothing scheduled", contents.scheduled, actions_.cancelScheduled);
    addRows("Recovery Log", "Empty", contents.recovery, actions_.retry);
    if (!contents.recovery.empty()) {
        QMenu& recovery = *menu_.actions().last()->menu();
        recovery.addSeparator();
        add(recovery, "Open the Log", actions_.openRecoveryLog);
    }
    menu_.addSeparator();
    add(menu_, "Settings File", actions_.openSettingsFile);
    if (contents.hasUpdate && actions_.installUpdate) add(menu_, "⬆ Install update", actions_.installUpdate);
    if (actions_.checkForUpdates) add(menu_, "Check for Updates…", actions_.checkForUpdates);
    menu_.addSeparator();
    add(menu_, "Quit Snipwren", actions_.quit);
}

void StatusMenu::popup() { menu_.popup(QCursor::pos()); }
} // namespace snipwren
