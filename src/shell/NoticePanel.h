#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QFrame>
#include <QString>

#include "shell/Appearance.h"

namespace snipwren {
/// One notice at the top right of the screen.
struct Notice {
    QString title;
    QString body;
    bool isFault = false;
    /// From 0 to 1; below 0 for none.
    double progress = -1;
    struct Button {
        QString title;
        std::function<void()> pressed;
    };
    std::vector<Button> buttons;
    /// In milliseconds; 0 stays until it is closed. The pointer on the notice keeps it.
    int lifetime = 5000;
    /// Takes the place of the notice with the same key; empty for none.
    QString key;
};

/// Shows notices above all windows, newest at the bottom, without ever taking the keyboard: whoever is typing goes on.
/// Main thread.
class NoticePanel {
public:
    static constexpr std::size_t maxNotices = 4;
    static constexpr int width = 360;

    explicit NoticePanel(const Appearance& appearance);
    ~NoticePanel();
    NoticePanel(const NoticePanel&) = delete;
    NoticePanel& operator=(const NoticePanel&) = delete;

    void show(const Notice& notice);
    void setAppearance(const Appearance& appearance) { style_ = appearance.noticeStyle(); }

private:
    class Card;
    void remove(Card* card);
    void arrange();

    QString style_;
    std::vector<std::unique_ptr<Card>> cards_;
};
} // namespace snipwren
