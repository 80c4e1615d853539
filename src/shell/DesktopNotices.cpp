#include "shell/DesktopNotices.h"

namespace snipwren {
namespace {
QString qt(const std::string& text) { return QString::fromStdString(text); }
} // namespace

DesktopNotices::DesktopNotices(const Dependencies& dependencies)
    : to_(dependencies),
      subscription_(
          to_.notifications.observe("PresentCaptureFailure", [this](const UserInfo& info) { showFailure(info); })) {}

void DesktopNotices::show(const HeadsUp& notice) {
    Notice card;
    card.title = qt(notice.title);
    card.body = qt(notice.body);
    card.progress = notice.progress;
    // One running operation has one card, which moves on.
    if (notice.progress >= 0) card.key = "progress " + card.title;
    to_.panel.show(card);
}

void DesktopNotices::announce(const Landing& landing) {
    to_.mainQueue.async([this, landing] {
        Notice card;
        card.title = qt(landing.receipt);
        card.body = qt(landing.text);
        card.lifetime = receiptLifetime;
        if (landing.revealPath) {
            card.buttons.push_back({"Reveal", [this, path = *landing.revealPath] { to_.reveal(path); }});
        }
        if (landing.canUndo) card.buttons.push_back({"Undo", [this, id = landing.captureId] { to_.undo(id); }});
        to_.panel.show(card);
    });
}

void DesktopNotices::announceFault(const std::string& sentence) {
    to_.mainQueue.async([this, sentence] {
        Notice card;
        card.title = qt(sentence);
        card.isFault = true;
        to_.panel.show(card);
    });
}

void DesktopNotices::showFailure(const UserInfo& info) {
    const std::string command = text(info, "command");
    const std::string message = text(info, "message");
    Notice card;
    card.isFault = !flag(info, "informational");
    card.title = card.isFault ? qt("//" + command) : "Snipwren";
    card.body = qt(message.empty() ? text(info, "detail") : message);
    card.lifetime = failureLifetime;
    if (const std::string action = text(info, "actionTitle"); !action.empty())
        card.buttons.push_back({qt(action), [this, section = text(info, "section"), field = text(info, "field")] {
                                    to_.openSettings(section, field);
                                }});
    to_.panel.show(card);
}
} // namespace snipwren
