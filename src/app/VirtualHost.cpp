#include "app/VirtualHost.h"

namespace snipwren {
Host VirtualHost::host() {
    const auto used = [](auto& ours, auto* real) -> auto& { return real ? *real : ours; };
    return {.taps = desktop_,
            .permissions = desktop_,
            .workspace = desktop_,
            .fields = desktop_,
            .keyboard = desktop_,
            .screens = desktop_,
            .overlay = overlay_,
            .ownWindows = overlay_,
            .pasteboard = used(static_cast<Pasteboard&>(pasteboard_), real_.pasteboard),
            .alerts = *this,
            .headsUp = *this,
            .notificationCenter =
                used(static_cast<UserNotificationCenter&>(notificationCenter_), real_.notificationCenter),
            .eventStore = used(static_cast<EventStore&>(eventStore_), real_.eventStore),
            .landing = *this,
            .mainQueue = mainQueue_};
}

std::vector<Landing> VirtualHost::landings() const {
    const std::lock_guard lock(mutex_);
    return landings_;
}

std::vector<Alert> VirtualHost::alerts() const {
    const std::lock_guard lock(mutex_);
    return alerts_;
}

std::vector<HeadsUp> VirtualHost::notices() const {
    const std::lock_guard lock(mutex_);
    return notices_;
}

void VirtualHost::announce(const Landing& landing) {
    const std::lock_guard lock(mutex_);
    landings_.push_back(landing);
}

void VirtualHost::present(const Alert& alert, std::function<void(int)> answered) {
    {
        const std::lock_guard lock(mutex_);
        alerts_.push_back(alert);
    }
    // Nobody looks at it: closed without a choice.
    if (answered) mainQueue_.async([answered = std::move(answered)] { answered(-1); });
}

void VirtualHost::show(const HeadsUp& notice) {
    const std::lock_guard lock(mutex_);
    notices_.push_back(notice);
}
} // namespace snipwren
