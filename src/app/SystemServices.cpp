#include "app/SystemServices.h"

#include "hosts/portable/UnavailableNotificationCenter.h"
#include "hosts/portable/VdirEventStore.h"
#ifdef SNIPWREN_HAS_SCHEDULER
#include "hosts/linux/desktop/DesktopEventStore.h"
#include "hosts/linux/desktop/SchedulerNotificationCenter.h"
#endif

namespace snipwren {
SystemServices::SystemServices(Environment& environment) {
    Environment& e = environment;
    folders_ = std::make_unique<VdirEventStore>(
        VdirEventStore::Dependencies{e.files(), e.paths(), e.defaults(), e.calendar(), e.clock()});
    store_ = folders_.get();
#ifdef SNIPWREN_HAS_SCHEDULER
    center_ = std::make_unique<SchedulerNotificationCenter>(SchedulerNotificationCenter::Dependencies{
        e.paths(), e.calendar(), e.clock(), e.mainQueue(), e.defaults(), e.log(), {}});
    service_ = std::make_unique<EdsEventStore>(EdsEventStore::Dependencies{e.calendar(), e.clock(), {}});
    desktop_ = std::make_unique<DesktopEventStore>(*folders_, *service_, e.defaults());
    store_ = desktop_.get();
#else
    center_ = std::make_unique<UnavailableNotificationCenter>();
#endif
}

SystemServices::~SystemServices() = default;
} // namespace snipwren
