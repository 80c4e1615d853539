#include "parsing/scheduling/NotificationDelegate.h"

#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
NotificationDelegate::~NotificationDelegate() {
    if (!attached_) return;
    dependencies_.center.setDeliveryHandler(nullptr);
    dependencies_.center.setResponseHandler(nullptr);
    dependencies_.center.setPendingChangeHandler(nullptr);
}

void NotificationDelegate::attach() {
    attached_ = true;
    dependencies_.center.setDeliveryHandler(
        [this](const NotificationDelivery& delivery) { return willPresent(delivery); });
    dependencies_.center.setResponseHandler([this](const NotificationResponse& response) { didReceive(response); });
    dependencies_.center.setPendingChangeHandler(
        [this] { dependencies_.notifications.post(scheduledCapturesChanged); });
}

void NotificationDelegate::onAction(const std::string& categoryIdentifier, const std::string& actionIdentifier,
                                    std::function<void(const NotificationResponse&)> handler) {
    actions_[{categoryIdentifier, actionIdentifier}] = std::move(handler);
}

NotificationPresentation NotificationDelegate::willPresent(const NotificationDelivery& delivery) {
    const NotificationRequest& request = delivery.request;
    const std::string& category = request.categoryIdentifier;
    if (category == NotificationScheduler::timerCategory || category == NotificationScheduler::alarmCategory
        || category == NotificationScheduler::reminderCategory)
        dependencies_.fallback.systemDelivered(request.identifier, request.title, request.body);
    return {};
}

void NotificationDelegate::didReceive(const NotificationResponse& response) {
    const auto found = actions_.find({response.categoryIdentifier, response.actionIdentifier});
    if (found != actions_.end()) found->second(response);
}
} // namespace snipwren
