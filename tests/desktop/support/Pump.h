#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include <QCoreApplication>
#include <QPixmap>
#include <QWidget>

namespace snipwren {
/// Runs the toolkit's loop until the condition holds; false when the time is over first.
inline bool pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (done()) return true;
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

/// Keeps a picture of the window for the documentation where SNIPWREN_SCREENSHOTS names a folder.
inline void keepPicture(QWidget& window, const std::string& name) {
    if (const char* folder = std::getenv("SNIPWREN_SCREENSHOTS"))
        window.grab().save(QString::fromStdString(std::string(folder) + "/" + name + ".png"));
}
} // namespace snipwren
