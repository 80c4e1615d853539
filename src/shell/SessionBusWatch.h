#pragma once

#include <functional>

#include <QObject>
#include <QTimer>

namespace snipwren {
/// Notices that the session bus ended and that there is one again at the same address. A toolkit's connection that broke
/// stays broken for the rest of the process, so whoever uses it has to begin anew. Main thread.
class SessionBusWatch final : public QObject {
    Q_OBJECT
public:
    /// How often to look for a bus while there is none; otherwise it costs nothing.
    static constexpr std::chrono::seconds lookInterval{2};

    SessionBusWatch(std::function<void()> lost, std::function<void()> cameBack);

private slots:
    void busLost();

private:
    void look();

    const std::function<void()> lost_;
    const std::function<void()> cameBack_;
    QTimer look_;
};
} // namespace snipwren
