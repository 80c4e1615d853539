#pragma once

#include <memory>
#include <string>

#include "base/Log.h"
#include "base/Result.h"
#include "scheduler/DesktopNotifications.h"
#include "scheduler/SchedulerEngine.h"

namespace sdbus {
class IConnection;
class IObject;
} // namespace sdbus

namespace snipwren {
/// The engine on the session bus: one thread that sleeps until a request comes, a deadline is reached or the wall clock
/// is set, and never otherwise.
class SchedulerService final : private SchedulerListener {
public:
    struct Dependencies {
        SchedulerStore& store;
        const SchedulerClocks& clocks;
        SoundPlayer& sound;
        Log& log;
    };
    struct Error {
        std::string description;
        /// Another scheduler has the name already, which is as good.
        bool alreadyRunning = false;
    };

    explicit SchedulerService(const Dependencies& dependencies);
    ~SchedulerService() override;

    /// Connects and takes the name.
    Result<void, Error> start(const std::string& busName);
    /// Until the bus goes away.
    void run();

private:
    void registerMethods();
    void armTimers() const;
    void pendingDidChange() override;
    void didFire(const ScheduledItem& item, bool late) override;

    const Dependencies dependencies_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IObject> object_;
    std::unique_ptr<DesktopNotifications> notifications_;
    std::unique_ptr<SchedulerEngine> engine_;
    int wallTimer_ = -1;
    int bootTimer_ = -1;
    /// A request changed what is due; looked at once the request has been answered.
    bool sweepIsDue_ = true;
    bool serviceAppeared_ = true;
};
} // namespace snipwren
