#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"

namespace snipwren {
enum class NotificationAuthorization { notDetermined, denied, authorized };

struct NotificationSettings {
    NotificationAuthorization authorization = NotificationAuthorization::notDetermined;
    /// False when the user turned banners and alerts off.
    bool alertsEnabled = true;
    friend bool operator==(const NotificationSettings&, const NotificationSettings&) = default;
};

/// A button of a notification.
struct NotificationAction {
    std::string id;
    std::string title;
    friend bool operator==(const NotificationAction&, const NotificationAction&) = default;
};

/// A kind of notification and the buttons that its notifications carry.
struct NotificationCategory {
    std::string id;
    std::vector<NotificationAction> actions;
    friend bool operator==(const NotificationCategory&, const NotificationCategory&) = default;
};

struct NotificationContent {
    std::string title;
    std::string subtitle;
    /// Plain text; a host whose notifications read markup escapes it.
    std::string body;
    std::string categoryId;
    /// The default notification sound, or none.
    bool hasSound = true;
    std::map<std::string, double> userInfo;
    friend bool operator==(const NotificationContent&, const NotificationContent&) = default;
};

struct NotificationTrigger {
    /// Delivered as soon as it is added; never pending.
    struct AtOnce {
        friend bool operator==(const AtOnce&, const AtOnce&) = default;
    };
    /// After that much time, counting sleep; a step of the wall clock does not move it.
    struct AfterInterval {
        Duration interval{};
        friend bool operator==(const AfterInterval&, const AfterInterval&) = default;
    };
    /// At that moment of the wall clock; a step of the clock brings it nearer or takes it farther.
    struct AtMoment {
        TimePoint moment;
        friend bool operator==(const AtMoment&, const AtMoment&) = default;
    };
};

struct NotificationRequest {
    std::string id;
    NotificationContent content;
    std::variant<NotificationTrigger::AtOnce, NotificationTrigger::AfterInterval, NotificationTrigger::AtMoment>
        trigger;
    friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

/// A request that waits for its moment.
struct PendingNotification {
    NotificationRequest request;
    /// By the present clocks; none where the system does not tell.
    std::optional<TimePoint> nextFireDate;
};

struct DeliveredNotification {
    NotificationRequest request;
    TimePoint deliveredAt;
    /// Delivered noticeably after its moment: the machine was off, or nothing that delivers was running.
    bool late = false;
};

/// What the user did with a notification.
struct NotificationResponse {
    /// The notification itself was clicked, not one of its buttons.
    static constexpr const char* defaultAction = "default";
    std::string requestId;
    std::string categoryId;
    std::string actionId;
};

struct NotificationCenterError {
    /// The system's own words.
    std::string description;
};

/// What a notification center tells the program. Every call comes on the main queue.
class UserNotificationCenterDelegate {
public:
    struct Presentation {
        bool banner = true;
        bool list = true;
        bool sound = true;
    };
    virtual ~UserNotificationCenterDelegate() = default;
    /// Asked (where the system asks) or told when a notification arrives while the program runs.
    virtual Presentation willPresent(const DeliveredNotification& notification) = 0;
    /// `completed` must be called once the response is dealt with.
    virtual void didReceive(const NotificationResponse& response, std::function<void()> completed) = 0;
    /// The set of pending requests changed, whichever program changed it.
    virtual void pendingRequestsDidChange() = 0;
};

/// The system's notifications: delivers requests at their moment, also when this program no longer runs.
/// All operations block for a bounded time and may be called on any thread.
class UserNotificationCenter {
public:
    virtual ~UserNotificationCenter() = default;
    virtual NotificationSettings settings() = 0;
    /// Asks the user where the system has such a question; answers whether alerts, sounds and badges were granted.
    virtual bool requestAuthorization() = 0;
    /// Adds the category, replacing one of the same identifier.
    virtual void registerCategory(const NotificationCategory& category) = 0;
    /// A request with the identifier of a pending one replaces it. Success is what the system claims: see pending().
    virtual Result<void, NotificationCenterError> add(const NotificationRequest& request) = 0;
    virtual Result<std::vector<PendingNotification>, NotificationCenterError> pending() = 0;
    /// An identifier that is not pending is no error.
    virtual Result<void, NotificationCenterError> removePending(const std::string& id) = 0;
    /// Those that are still shown, as far as the system tells.
    virtual std::vector<DeliveredNotification> delivered() = 0;
    virtual void removeDelivered(const std::string& id) = 0;
    /// The delegate must outlive the center or be replaced by nullptr on the main queue.
    virtual void setDelegate(UserNotificationCenterDelegate* delegate) = 0;
};
} // namespace snipwren
