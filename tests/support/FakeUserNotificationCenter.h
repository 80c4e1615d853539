#pragma once

#include <algorithm>
#include <mutex>

#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// Keeps requests in memory; a request without a trigger counts as delivered at once. Thread safe.
class FakeUserNotificationCenter final : public UserNotificationCenter {
public:
    NotificationSettings currentSettings{NotificationSettings::Authorization::authorized, true};
    bool grantsAuthorization = true;
    bool dropsRequestsSilently = false;
    std::optional<std::string> addError;
    std::vector<NotificationCategory> categories;
    /// Every request that was added, replaced ones too.
    std::vector<NotificationRequest> added;

    NotificationSettings settings() override {
        const std::lock_guard lock(mutex_);
        return currentSettings;
    }
    bool requestAuthorization() override {
        const std::lock_guard lock(mutex_);
        using enum NotificationSettings::Authorization;
        currentSettings.authorization = grantsAuthorization ? authorized : denied;
        return grantsAuthorization;
    }
    void setCategory(const NotificationCategory& category) override {
        const std::lock_guard lock(mutex_);
        std::erase_if(categories, [&](const auto& old) { return old.identifier == category.identifier; });
        categories.push_back(category);
    }
    Result<void, NotificationCenterError> add(const NotificationRequest& request) override {
        const std::lock_guard lock(mutex_);
        if (addError) return unexpected(NotificationCenterError{*addError});
        added.push_back(request);
        if (dropsRequestsSilently) return {};
        if (std::holds_alternative<std::monostate>(request.trigger)) {
            delivered_.push_back(request.identifier);
        } else {
            std::erase_if(pending_, [&](const auto& old) { return old.identifier == request.identifier; });
            pending_.push_back(request);
        }
        return {};
    }
    Result<std::vector<NotificationRequest>, NotificationCenterError> pending() override {
        const std::lock_guard lock(mutex_);
        return pending_;
    }
    Result<void, NotificationCenterError> removePending(const std::string& identifier) override {
        const std::lock_guard lock(mutex_);
        std::erase_if(pending_, [&](const auto& old) { return old.identifier == identifier; });
        return {};
    }
    std::vector<std::string> delivered() override {
        const std::lock_guard lock(mutex_);
        return delivered_;
    }
    void removeDelivered(const std::string& identifier) override {
        const std::lock_guard lock(mutex_);
        std::erase(delivered_, identifier);
    }
    void setResponseHandler(std::function<void(const NotificationResponse&)> handler) override {
        handler_ = std::move(handler);
    }
    void setDeliveryHandler(std::function<NotificationPresentation(const NotificationDelivery&)> handler) override {
        deliveryHandler_ = std::move(handler);
    }
    void setPendingChangeHandler(std::function<void()> handler) override { changeHandler_ = std::move(handler); }
    void respond(const NotificationResponse& response) {
        if (handler_) handler_(response);
    }

private:
    std::mutex mutex_;
    std::vector<NotificationRequest> pending_;
    std::vector<std::string> delivered_;
    std::function<void(const NotificationResponse&)> handler_;
    std::function<NotificationPresentation(const NotificationDelivery&)> deliveryHandler_;
    std::function<void()> changeHandler_;
};
} // namespace snipwren
