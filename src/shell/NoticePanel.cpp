#include "shell/NoticePanel.h"

#include <algorithm>

#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

#include "shell/WindowPlacement.h"

namespace snipwren {
class NoticePanel::Card final : public QFrame {
public:
    Card(NoticePanel& panel, const Notice& notice)
        : QFrame(nullptr, Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint
                              | Qt::WindowDoesNotAcceptFocus),
          panel_(panel),
          key_(notice.key) {
        setObjectName("notice");
        setWindowTitle(notice.title);
        setAccessibleName(notice.title);
        setAccessibleDescription(notice.body);
        setAttribute(Qt::WA_ShowWithoutActivating);
        setStyleSheet(panel.style_);
        auto* const column = new QVBoxLayout(this);
        column->setContentsMargins(14, 12, 14, 12);
        column->setSpacing(6);
        const auto addLabel = [&](const char* name, const QString& text) {
            if (text.isEmpty()) return;
            auto* const label = new QLabel(text);
            label->setObjectName(name);
            // What was captured may hold anything, also markup.
            label->setTextFormat(Qt::PlainText);
            label->setWordWrap(true);
            column->addWidget(label);
        };
        addLabel(notice.isFault ? "fault" : "title", notice.title);
        addLabel("body", notice.body);
        if (notice.progress >= 0) {
            auto* const bar = new QProgressBar;
            bar->setTextVisible(false);
            bar->setRange(0, 1000);
            bar->setValue(static_cast<int>(std::clamp(notice.progress, 0.0, 1.0) * 1000));
            column->addWidget(bar);
        }
        if (!notice.buttons.empty()) {
            auto* const row = new QHBoxLayout;
            row->addStretch();
            for (const Notice::Button& button : notice.buttons) {
                auto* const widget = new QPushButton(button.title);
                QObject::connect(widget, &QPushButton::clicked, this, [this, pressed = button.pressed] {
                    const auto action = pressed;
                    panel_.remove(this);
                    if (action) action();
                });
                row->addWidget(widget);
            }
            column->addLayout(row);
        }
        setFixedWidth(NoticePanel::width);
        setFixedHeight(std::max(layout()->totalHeightForWidth(NoticePanel::width), 40));
        lifetime_.setSingleShot(true);
        QObject::connect(&lifetime_, &QTimer::timeout, this, [this] { panel_.remove(this); });
        if (notice.lifetime > 0) {
            lifetime_.setInterval(notice.lifetime);
            lifetime_.start();
        }
    }

    const QString& key() const { return key_; }
    bool isClosing = false;

protected:
    bool event(QEvent* event) override {
        if (lifetime_.interval() > 0 && event->type() == QEvent::Enter) lifetime_.stop();
        if (lifetime_.interval() > 0 && event->type() == QEvent::Leave && !isClosing) lifetime_.start();
        // A click beside the buttons puts the notice away.
        if (event->type() == QEvent::MouseButtonRelease) panel_.remove(this);
        return QFrame::event(event);
    }

private:
    NoticePanel& panel_;
    const QString key_;
    QTimer lifetime_;
};

NoticePanel::NoticePanel(const Appearance& appearance) : style_(appearance.noticeStyle()) {}

NoticePanel::~NoticePanel() = default;

void NoticePanel::show(const Notice& notice) {
    if (!notice.key.isEmpty())
        for (std::size_t i = cards_.size(); i-- > 0;)
            if (cards_[i]->key() == notice.key) remove(cards_[i].get());
    while (cards_.size() >= maxNotices) remove(cards_.front().get());
    cards_.push_back(std::make_unique<Card>(*this, notice));
    arrange();
}

void NoticePanel::remove(Card* card) {
    const auto found = std::find_if(cards_.begin(), cards_.end(), [&](const auto& one) { return one.get() == card; });
    if (found == cards_.end()) return;
    // It may be one of its own events that removes it.
    Card* const old = found->release();
    cards_.erase(found);
    old->isClosing = true;
    old->hide();
    old->deleteLater();
    arrange();
}

void NoticePanel::arrange() {
    const QScreen* const screen = QGuiApplication::primaryScreen();
    if (!screen) return;
    const QRect visible = screen->availableGeometry();
    int y = visible.top() + static_cast<int>(WindowPlacement::margin);
    for (const auto& card : cards_) {
        card->move(visible.right() - width - static_cast<int>(WindowPlacement::margin), y);
        card->show();
        y += card->height() + static_cast<int>(WindowPlacement::margin);
    }
}
} // namespace snipwren
