#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// The notification center of the virtual desktop: requests live in memory and are delivered on the main queue when
/// their moment comes by the clock that both share. Thread safe.
class VirtualNotificationCenter final : public UserNotificationCenter {
public:
    VirtualNotificationCenter(SerialQueue& mainQueue, Clock& clock);
    ~VirtualNotificationCenter() override;

    /// What the user chose in the virtual system's settings, and answers when asked.
    void setSettings(const NotificationSettings& settings, bool grantsWhenAsked = true);
    /// Accepts requests and forgets them, as a system does that has muted a program.
    void setDropsSilently(bool drops);
    /// Delivers what is due; to be called after the wall clock was stepped.
    void clockDidChange();
    /// Every delivery so far.
    std::vector<NotificationDelivery> history() const;
    /// The user presses a button of a delivered notification (or the notification itself).
    void respond(const std::string& identifier, const std::string& actionIdentifier);

    NotificationSettings settings() override;
    bool requestAuthorization() override;
    void setCategory(const NotificationCategory& category) override;
    Result<void, NotificationCenterError> add(const NotificationRequest& request) override;
    Result<std::vector<NotificationRequest>, NotificationCenterError> pending() override;
    Result<void, NotificationCenterError> removePending(const std::string& identifier) override;
    std::vector<std::string> delivered() override;
    void removeDelivered(const std::string& identifier) override;
    void setResponseHandler(std::function<void(const NotificationResponse&)> handler) override;
    void setDeliveryHandler(std::function<NotificationPresentation(const NotificationDelivery&)> handler) override;
    void setPendingChangeHandler(std::function<void()> handler) override;

private:
    struct Waiting {
        NotificationRequest request;
        /// One of the two, by the kind of trigger.
        std::optional<SteadyPoint> steadyMoment;
        std::optional<TimePoint> wallMoment;
        SerialQueue::TimerId timer = 0;
    };
    struct State {
        mutable std::mutex mutex;
        NotificationSettings settings{NotificationSettings::Authorization::authorized, true};
        bool grantsWhenAsked = true;
        bool dropsSilently = false;
        std::map<std::string, NotificationCategory> categories;
        std::map<std::string, Waiting> waiting;
        std::vector<NotificationRequest> shown;
        std::vector<NotificationDelivery> history;
        std::function<void(const NotificationResponse&)> responseHandler;
        std::function<NotificationPresentation(const NotificationDelivery&)> deliveryHandler;
        std::function<void()> changeHandler;
    };
    void arm(Waiting& waiting);
    void deliverDue(const std::string& identifier);
    void deliver(const NotificationRequest& request);
    void tellChange();

    SerialQueue& mainQueue_;
    Clock& clock_;
    /// Held weakly by the tasks that wait on the main queue.
    std::shared_ptr<State> state_;
};
} // namespace snipwren
