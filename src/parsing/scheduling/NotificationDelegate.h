#pragma once

#include <functional>
#include <map>
#include <string>

#include "base/NotificationCenter.h"
#include "parsing/scheduling/TimerCompletionFallback.h"
#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// Our side of the notification center: lets notifications appear while the application is in front, hands the buttons
/// that the user pressed to whoever they belong to, and passes on that the pending set changed. Main queue.
class NotificationDelegate {
public:
    struct Dependencies {
        UserNotificationCenter& center;
        TimerCompletionFallback& fallback;
        NotificationCenter& notifications;
    };
    explicit NotificationDelegate(const Dependencies& dependencies) : dependencies_(dependencies) {}
    ~NotificationDelegate();
    NotificationDelegate(const NotificationDelegate&) = delete;

    /// Becomes the center's delegate.
    void attach();
    /// What a button (or NotificationResponse::defaultAction with a category) does. Set before attach().
    void onAction(const std::string& categoryIdentifier, const std::string& actionIdentifier,
                  std::function<void(const NotificationResponse&)> handler);

private:
    NotificationPresentation willPresent(const NotificationDelivery& delivery);
    void didReceive(const NotificationResponse& response);

    const Dependencies dependencies_;
    bool attached_ = false;
    std::map<std::pair<std::string, std::string>, std::function<void(const NotificationResponse&)>> actions_;
};
} // namespace snipwren
