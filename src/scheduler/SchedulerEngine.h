#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/Log.h"
#include "scheduler/SchedulerClocks.h"
#include "scheduler/SchedulerStore.h"

namespace snipwren {
/// Shows notifications. False when nothing there shows them now; the item is offered again later.
class NotificationOutlet {
public:
    virtual ~NotificationOutlet() = default;
    /// `lateBy` is zero for one that comes in time.
    virtual bool show(const ScheduledItem& item, Duration lateBy) = 0;
};

/// Who hears what the scheduler did.
class SchedulerListener {
public:
    virtual ~SchedulerListener() = default;
    virtual void pendingDidChange() = 0;
    /// At its moment, once, whether or not a notification could be shown.
    virtual void didFire(const ScheduledItem& item, bool late) = 0;
};

/// The pending set and the decision what is due. It owns no timer: whoever runs it sweeps when one of deadlines() is
/// reached, when the wall clock was set, after a suspend and after every change. One thread.
class SchedulerEngine {
public:
    static constexpr std::size_t maxItems = 20'000;
    static constexpr std::size_t maxIdentifier = 256;
    static constexpr std::size_t maxText = 16'384;
    /// From here on a delivery counts as late.
    static constexpr Duration lateFrom = std::chrono::seconds(2);
    /// How long an item that no service showed is kept.
    static constexpr Duration keepsUnshown = std::chrono::hours(24);

    struct Dependencies {
        SchedulerStore& store;
        const SchedulerClocks& clocks;
        NotificationOutlet& outlet;
        SchedulerListener& listener;
        Log& log;
    };
    struct Deadlines {
        std::optional<Duration> sinceBoot;
        std::optional<TimePoint> wall;
    };
    struct Error {
        std::string description;
    };

    explicit SchedulerEngine(const Dependencies& dependencies) : dependencies_(dependencies) {}

    /// Reads the store. Nothing fires before the first sweep.
    Result<void, Error> load();
    /// On the disk when it returns; an item of the same identifier is replaced. The caller sweeps.
    Result<void, Error> add(ScheduledItem item);
    /// False when there was none.
    Result<bool, Error> remove(const std::string& id);
    /// What is yet to fire, with fire dates by the present clocks.
    std::vector<ScheduledItem> pending() const;
    /// Fires everything that is due.
    void sweep();
    /// A notification service has appeared: offers it what could not be shown.
    void serviceDidAppear();
    Deadlines deadlines() const;

private:
    bool runsOnBootClock(const StoredItem& stored) const;
    TimePoint fireDate(const StoredItem& stored) const;
    void fire(const std::string& id);
    void forget(const std::string& id);

    const Dependencies dependencies_;
    std::string bootId_;
    std::map<std::string, StoredItem> items_;
    /// Shown, but the store did not let go of them; tried again at every sweep, so that a restart does not show them twice.
    std::set<std::string> undeleted_;
};
} // namespace snipwren
