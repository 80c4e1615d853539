#pragma once

#include <memory>
#include <optional>

#include <QDBusServiceWatcher>
#include <QIcon>
#include <QSystemTrayIcon>

#include "shell/StatusMenu.h"

namespace snipwren {
/// The icon in the panel, with the countdown in it. The toolkit decides once and for all whether there is a panel, so it
/// is not asked before one has come. Main thread.
class StatusItem {
public:
    explicit StatusItem(QMenu& menu);
    ~StatusItem();

    /// Waits for a panel when there is none yet.
    void start();
    bool isShown() const { return tray_ != nullptr; }
    struct Look {
        bool isPaused = false;
        bool hasProblem = false;
        /// What stands in the icon instead of the two slashes: "1m", "45".
        QString badge;
        QString toolTip = "Snipwren";
        friend bool operator==(const Look&, const Look&) = default;
    };
    void setLook(const Look& look);
    /// The drawn icon: two slashes, paler while paused, with a mark while there is a problem.
    static QIcon icon(const Look& look);

private:
    void lookForHost();
    void show();

    QMenu& menu_;
    Look look_;
    QDBusServiceWatcher watcher_;
    std::unique_ptr<QSystemTrayIcon> tray_;
};
} // namespace snipwren
