#pragma once

#include <memory>
#include <string>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/SerialQueue.h"
#include "base/UserDefaults.h"
#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// The notification center of Linux desktops, which keep no scheduled notifications themselves: our own small program
/// `snipwren-scheduler` does, on the session bus. It is started by the bus, or from here where it is not installed.
/// Thread safe. A command that asks one question costs one connection; the thread that hears signals starts with the
/// first handler.
class SchedulerNotificationCenter final : public UserNotificationCenter {
public:
    /// Users who want no banners, only our own panel, say so here, because desktops tell it to nobody.
    static constexpr const char* alertsSetting = "notificationAlertsEnabled";

    struct Dependencies {
        Paths paths;
        const Calendar& calendar;
        Clock& clock;
        SerialQueue& mainQueue;
        const UserDefaults& defaults;
        Log& log;
        /// The program to start; empty: beside our own program, then on the PATH.
        std::string schedulerProgram;
    };
    explicit SchedulerNotificationCenter(Dependencies dependencies);
    ~SchedulerNotificationCenter() override;

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
    struct Calls;
    struct Signals;
    struct Handlers;
    void listen();

    const Dependencies dependencies_;
    std::unique_ptr<Calls> calls_;
    /// Held weakly by what waits on the main queue.
    std::shared_ptr<Handlers> handlers_;
    std::unique_ptr<Signals> signals_;
};
} // namespace snipwren
