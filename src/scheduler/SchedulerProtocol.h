#pragma once

#include <string>

#include "base/Paths.h"

namespace snipwren {
/// Names under which the scheduler and its clients meet on the session bus.
/// Methods: Add(s), Remove(s) -> b, List() -> s, Delivered() -> as, RemoveDelivered(s).
/// Signals: Changed(), Fired(s, b late), Action(s id, s category, s action).
struct SchedulerProtocol {
    static constexpr const char* defaultBusName = "org.snipwren.Scheduler";
    static constexpr const char* objectPath = "/org/snipwren/Scheduler";
    static constexpr const char* interfaceName = "org.snipwren.Scheduler1";
    static constexpr const char* errorName = "org.snipwren.Scheduler.Error.Failed";
    static constexpr const char* storeFile = "scheduler.db";

    /// Folders that stand under one root (SNIPWREN_HOME: tests, demonstrations) have a scheduler of their own, so that
    /// nothing of a trial run rings on the user's desktop later.
    static bool isSeparate(const Paths& paths);
    static std::string busName(const Paths& paths);
};
} // namespace snipwren
