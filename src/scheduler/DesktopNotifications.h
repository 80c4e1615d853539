#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Log.h"
#include "scheduler/SchedulerEngine.h"
#include "scheduler/SoundPlayer.h"

namespace sdbus {
class IConnection;
class IProxy;
} // namespace sdbus

namespace snipwren {
/// Shows notifications through the desktop's notification service. That a service answers with an identifier proves
/// nothing: a muted one does, too. One thread, the one that runs the connection.
class DesktopNotifications final : public NotificationOutlet {
public:
    struct Handlers {
        /// A button was pressed ("default": the notification itself) or the notification was closed by hand ("dismiss").
        std::function<void(const std::string& id, const std::string& category, const std::string& action)> action;
        std::function<void()> serviceAppeared;
    };
    DesktopNotifications(sdbus::IConnection& connection, SoundPlayer& sound, Log& log);
    ~DesktopNotifications() override;

    /// Listens to the service's signals.
    void start(Handlers handlers);
    bool show(const ScheduledItem& item, Duration lateBy) override;
    /// Of those that are still on show.
    std::vector<std::string> shown() const;
    void close(const std::string& id);

    /// "12 minutes late"
    static std::string lateness(Duration lateBy);
    /// Plain text for a service that reads markup.
    static std::string escaped(const std::string& text);

private:
    struct Shown {
        std::string id;
        std::string category;
    };
    struct Capabilities {
        bool markup = false;
        bool sound = false;
        bool actions = false;
    };
    /// None when no service answers.
    std::optional<Capabilities> capabilities();
    void tell(std::uint32_t number, const std::string& action);

    sdbus::IConnection& connection_;
    SoundPlayer& sound_;
    Log& log_;
    Handlers handlers_;
    std::unique_ptr<sdbus::IProxy> service_;
    std::optional<Capabilities> capabilities_;
    std::map<std::uint32_t, Shown> shown_;
    std::chrono::steady_clock::time_point leftAloneUntil_{};
};
} // namespace snipwren
