#include "shell/QtPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace snipwren {
void QtPasteboard::clear() { QGuiApplication::clipboard()->clear(); }

bool QtPasteboard::setString(const std::string& text) {
    QClipboard& clipboard = *QGuiApplication::clipboard();
    const QString value = QString::fromStdString(text);
    clipboard.setText(value);
    // Setting reports nothing; another program may have taken the clipboard in the same instant.
    return clipboard.ownsClipboard() && clipboard.text() == value;
}

std::optional<std::string> QtPasteboard::string() const {
    const QMimeData* const data = QGuiApplication::clipboard()->mimeData();
    if (!data || !data->hasText()) return std::nullopt;
    return data->text().toStdString();
}

std::optional<std::string> QtPasteboard::ownString() const {
    return QGuiApplication::clipboard()->ownsClipboard() ? string() : std::nullopt;
}
} // namespace snipwren
