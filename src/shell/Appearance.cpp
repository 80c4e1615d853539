#include "shell/Appearance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>

namespace snipwren {
namespace {
constexpr int portalTimeout = 150; // Milliseconds; asked once, before the first window.

struct Colours {
    const char* background;
    const char* border;
    const char* text;
    const char* dim;
    const char* accent;
    const char* selected;
    const char* selectedText;
    const char* fault;
    const char* field;
};
constexpr Colours light{"#fbfbfd", "#c3c6cf", "#1b1d22", "#5d6370", "#1f5fbf",
                        "#1f5fbf", "#ffffff", "#b3261e", "#ffffff"};
constexpr Colours dark{"#22252b", "#4a4f5a", "#f1f3f7", "#a7aebb", "#8ab4f8",
                       "#8ab4f8", "#14171c", "#ff8f85", "#191b20"};

const Colours& coloursOf(Appearance::Scheme scheme) { return scheme == Appearance::Scheme::dark ? dark : light; }
} // namespace

Appearance::Scheme Appearance::preferredScheme() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", "org.freedesktop.portal.Settings", "Read");
    call << QString("org.freedesktop.appearance") << QString("color-scheme");
    call.setAutoStartService(false);
    const QDBusMessage answer = QDBusConnection::sessionBus().call(call, QDBus::Block, portalTimeout);
    if (answer.type() == QDBusMessage::ReplyMessage && !answer.arguments().isEmpty()) {
        QVariant value = answer.arguments().first();
        // The portal wraps its answer twice.
        while (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
        if (value.toUInt() == 1) return Scheme::dark;
        if (value.toUInt() == 2) return Scheme::light;
    }
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128 ? Scheme::dark : Scheme::light;
}

QString Appearance::overlayStyle() const {
    const Colours& c = coloursOf(scheme_);
    return QString("#overlay { background: %1; border: 1px solid %2; }"
                   "QLabel { color: %3; background: transparent; }"
                   "#title { color: %5; font-weight: 700; font-size: 11px; letter-spacing: 1px; }"
                   "#subtitle, #hint { color: %4; font-size: 11px; }"
                   "#preview { color: %5; font-size: 13px; font-weight: 600; }"
                   "#fault { color: %8; font-size: 12px; }"
                   "#field { color: %3; background: %9; border: 1px solid %2; border-radius: 4px; padding: 6px 8px;"
                   " font-size: 15px; selection-background-color: %6; selection-color: %7; }"
                   "#field:focus { border-color: %5; }"
                   "#choices { color: %3; background: transparent; border: none; font-size: 13px; outline: none; }"
                   "#choices::item { padding: 4px 8px; border-radius: 4px; }"
                   "#choices::item:selected { background: %6; color: %7; }")
        .arg(c.background, c.border, c.text, c.dim, c.accent, c.selected, c.selectedText, c.fault, c.field);
}

QString Appearance::noticeStyle() const {
    const Colours& c = coloursOf(scheme_);
    return QString("#notice { background: %1; border: 1px solid %2; }"
                   "QLabel { color: %3; background: transparent; }"
                   "#title { font-weight: 700; font-size: 13px; }"
                   "#fault { color: %6; font-weight: 700; font-size: 13px; }"
                   "#body { color: %4; font-size: 12px; }"
                   "QPushButton { color: %5; background: transparent; border: 1px solid %2; border-radius: 4px;"
                   " padding: 4px 12px; font-size: 12px; }"
                   "QPushButton:hover, QPushButton:focus { border-color: %5; }"
                   "QProgressBar { border: none; background: %2; max-height: 4px; min-height: 4px; }"
                   "QProgressBar::chunk { background: %5; }")
        .arg(c.background, c.border, c.text, c.dim, c.accent, c.fault);
}
} // namespace snipwren
