#pragma once

#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// For a build without any way to notify: everything is refused, in words.
class UnavailableNotificationCenter final : public UserNotificationCenter {
public:
    NotificationSettings settings() override { return {NotificationSettings::Authorization::denied, false}; }
    bool requestAuthorization() override { return false; }
    void setCategory(const NotificationCategory&) override {}
    Result<void, NotificationCenterError> add(const NotificationRequest&) override { return unexpected(error()); }
    Result<std::vector<NotificationRequest>, NotificationCenterError> pending() override { return unexpected(error()); }
    Result<void, NotificationCenterError> removePending(const std::string&) override { return unexpected(error()); }
    std::vector<std::string> delivered() override { return {}; }
    void removeDelivered(const std::string&) override {}
    void setResponseHandler(std::function<void(const NotificationResponse&)>) override {}
    void setDeliveryHandler(std::function<NotificationPresentation(const NotificationDelivery&)>) override {}
    void setPendingChangeHandler(std::function<void()>) override {}

private:
    static NotificationCenterError error() { return {"This build of Snipwren cannot schedule notifications."}; }
};
} // namespace snipwren
