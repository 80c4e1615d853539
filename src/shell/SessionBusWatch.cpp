#include "shell/SessionBusWatch.h"

#include <QDBusConnection>

namespace snipwren {
namespace {
constexpr const char* trialName = "snipwren-bus-watch";
} // namespace

SessionBusWatch::SessionBusWatch(std::function<void()> lost, std::function<void()> cameBack)
    : lost_(std::move(lost)),
      cameBack_(std::move(cameBack)) {
    look_.setInterval(lookInterval);
    QObject::connect(&look_, &QTimer::timeout, this, &SessionBusWatch::look);
    // What the library itself tells when its connection broke.
    QDBusConnection::sessionBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                          "Disconnected", this, SLOT(busLost()));
}

void SessionBusWatch::busLost() {
    if (look_.isActive()) return;
    lost_();
    look_.start();
}

void SessionBusWatch::look() {
    const bool found = QDBusConnection::connectToBus(QDBusConnection::SessionBus, trialName).isConnected();
    QDBusConnection::disconnectFromBus(trialName);
    if (!found) return;
    look_.stop();
    cameBack_();
}
} // namespace snipwren
