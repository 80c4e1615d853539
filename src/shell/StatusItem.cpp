#include "shell/StatusItem.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QPainter>
#include <QTimer>

namespace snipwren {
namespace {
constexpr const char* watcherService = "org.kde.StatusNotifierWatcher";
constexpr int settleTime = 400; // Milliseconds between a watcher's coming and its host's.
constexpr int maxLooks = 10;
} // namespace

StatusItem::StatusItem(QMenu& menu) : menu_(menu) {
    watcher_.setConnection(QDBusConnection::sessionBus());
    watcher_.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    QObject::connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, &watcher_, [this] { lookForHost(); });
}

StatusItem::~StatusItem() = default;

void StatusItem::start() {
    watcher_.addWatchedService(watcherService);
    lookForHost();
}

void StatusItem::lookForHost() {
    if (tray_) return;
    QDBusMessage call = QDBusMessage::createMethodCall(watcherService, "/StatusNotifierWatcher",
                                                       "org.freedesktop.DBus.Properties", "Get");
    call << QString(watcherService) << QString("IsStatusNotifierHostRegistered");
    call.setAutoStartService(false);
    auto* const pending = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), &watcher_);
    QObject::connect(pending, &QDBusPendingCallWatcher::finished, &watcher_,
                     [this, pending, looks = watcher_.property("looks").toInt()] {
                         pending->deleteLater();
                         const QDBusPendingReply<QDBusVariant> reply = *pending;
                         if (!reply.isError() && reply.value().variant().toBool()) {
                             show();
                         } else if (!reply.isError() && looks < maxLooks) {
                             // The watcher is there before its host.
                             watcher_.setProperty("looks", looks + 1);
                             QTimer::singleShot(settleTime, &watcher_, [this] { lookForHost(); });
                         }
                     });
}

void StatusItem::show() {
    if (tray_) return;
    tray_ = std::make_unique<QSystemTrayIcon>(icon(look_));
    tray_->setToolTip(look_.toolTip);
    tray_->setContextMenu(&menu_);
    QObject::connect(tray_.get(), &QSystemTrayIcon::activated, &watcher_,
                     [this](QSystemTrayIcon::ActivationReason reason) {
                         if (reason == QSystemTrayIcon::Trigger) menu_.popup(QCursor::pos());
                     });
    tray_->show();
}

void StatusItem::setLook(const Look& look) {
    if (look == look_) return;
    const bool sameIcon =
        look.isPaused == look_.isPaused && look.hasProblem == look_.hasProblem && look.badge == look_.badge;
    look_ = look;
    if (!tray_) return;
    if (!sameIcon) tray_->setIcon(icon(look_));
    tray_->setToolTip(look_.toolTip);
}

QIcon StatusItem::icon(const Look& look) {
    QIcon icon;
    for (const int size : {22, 32, 44, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(look.isPaused ? QColor("#7d8594") : QColor("#1f5fbf"));
        painter.drawRoundedRect(pixmap.rect(), size / 5.0, size / 5.0);
        const QString text = look.badge.isEmpty() ? "//" : look.badge;
        QFont font;
        font.setBold(true);
        font.setPixelSize(static_cast<int>(size * (text.size() > 2 ? 0.42 : 0.6)));
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(pixmap.rect(), Qt::AlignCenter, text);
        if (look.hasProblem) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor("#e5484d"));
            painter.drawEllipse(QRectF(size * 0.62, 0, size * 0.38, size * 0.38));
        }
        icon.addPixmap(pixmap);
    }
    return icon;
}
} // namespace snipwren
