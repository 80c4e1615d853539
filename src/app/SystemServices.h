#pragma once

#include <memory>

#include "app/Environment.h"
#include "platform/EventStore.h"
#include "platform/UserNotificationCenter.h"

namespace snipwren {
/// This machine's notification center and event store, for the desktop program and the command line alike. Nothing is
/// connected or started before it is asked for something.
class SystemServices {
public:
    explicit SystemServices(Environment& environment);
    ~SystemServices();

    UserNotificationCenter& notificationCenter() { return *center_; }
    EventStore& eventStore() { return *store_; }

private:
    std::unique_ptr<UserNotificationCenter> center_;
    std::unique_ptr<EventStore> folders_;
#ifdef SNIPWREN_HAS_SCHEDULER
    std::unique_ptr<class EdsEventStore> service_;
    std::unique_ptr<EventStore> desktop_;
#endif
    EventStore* store_ = nullptr;
};
} // namespace snipwren
