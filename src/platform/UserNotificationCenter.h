#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Result.h"

namespace snipwren {
struct NotificationSettings {
    enum class Authorization { notDetermined, denied, authorized };
    Authorization authorization = Authorization::notDetermined;
    /// Banners or alerts are shown; false when they are turned off although notifications are allowed.
    bool alertsEnabled = true;
};

struct NotificationAction {
    std::string identifier;
    std::string title;
};

struct NotificationCategory {
    std::string identifier;
    std::vector<NotificationAction> actions;
};

/// Fires when this much time has passed, whatever the wall clock does meanwhile.
struct IntervalTrigger {
    Duration interval{};
    friend bool operator==(const IntervalTrigger&, const IntervalTrigger&) = default;
};

/// Fires at a civil time of a zone; `moment` is that time resolved when the request was made.
struct CalendarTrigger {
    CivilTime civil;
    std::string zone;
    TimePoint moment{};
    friend bool operator==(const CalendarTrigger&, const CalendarTrigger&) = default;
};

struct NotificationRequest {
    /// Adding a request with the identifier of an older one replaces it.
    std::string identifier;
    std::string categoryIdentifier;
    std::string title;
    std::string subtitle;
    /// Plain text; whoever shows it escapes what its system would take for markup.
    std::string body;
    bool playsSound = false;
    std::map<std::string, double> userInfo;
    /// None delivers at once.
    std::variant<std::monostate, IntervalTrigger, CalendarTrigger> trigger;
};

/// A notification that has just arrived.
struct NotificationDelivery {
    NotificationRequest request;
    /// Noticeably after its moment: the machine was off, or nothing that delivers was running.
    bool late = false;
};

/// How a notification that arrives while the program is in front is shown.
struct NotificationPresentation {
    bool banner = true;
    bool list = true;
    bool sound = true;
    friend bool operator==(const NotificationPresentation&, const NotificationPresentation&) = default;
};

struct NotificationResponse {
    /// What actionIdentifier holds when the notification itself was clicked, and when it was closed.
    static constexpr const char* defaultAction = "default";
    static constexpr const char* dismissAction = "dismiss";

    std::string requestIdentifier;
    std::string categoryIdentifier;
    std::string actionIdentifier;
};

struct NotificationCenterError {
    /// The system's own words.
    std::string description;
};

/// The system's user notifications. The calls block until the system has answered and may come from any thread but the
/// one that delivers the responses.
class UserNotificationCenter {
public:
    virtual ~UserNotificationCenter() = default;
    virtual NotificationSettings settings() = 0;
    /// Asks the user for alerts, sounds and badges; true when granted. Brings the application to the front if it must.
    virtual bool requestAuthorization() = 0;
    /// Replaces the category of that identifier and leaves the others.
    virtual void setCategory(const NotificationCategory& category) = 0;

    /// Success is what the system claims: see pending().
    virtual Result<void, NotificationCenterError> add(const NotificationRequest& request) = 0;
    /// Requests that are yet to fire, in no order.
    virtual Result<std::vector<NotificationRequest>, NotificationCenterError> pending() = 0;
    /// An unknown identifier is no error.
    virtual Result<void, NotificationCenterError> removePending(const std::string& identifier) = 0;
    /// Identifiers of delivered notifications that are still on show.
    virtual std::vector<std::string> delivered() = 0;
    virtual void removeDelivered(const std::string& identifier) = 0;

    /// Called on the main queue for everything the user does with a notification. One handler; empty ends it.
    virtual void setResponseHandler(std::function<void(const NotificationResponse&)> handler) = 0;
    /// Called on the main queue for every notification that arrives while the program runs, whichever program added it.
    virtual void setDeliveryHandler(std::function<NotificationPresentation(const NotificationDelivery&)> handler) = 0;
    /// Called on the main queue when the pending requests change, whichever program changed them.
    virtual void setPendingChangeHandler(std::function<void()> handler) = 0;
};
} // namespace snipwren
