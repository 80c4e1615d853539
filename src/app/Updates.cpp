#include "app/Updates.h"

#include "app/RunningProgram.h"

namespace snipwren {
Updates::Updates(Environment& environment, const Host& host, HttpClient& http)
    : mainQueue_(host.mainQueue),
      worker_("com.snipwren.app.updates"),
      running_(runningProgram()),
      service_(http, environment.files(), environment.paths().downloads, running_.version),
      checker_({service_, host.notificationCenter, environment.notifications(), host.workspace, host.alerts,
                host.headsUp, environment.defaults(), environment.clock(), environment.log(), host.mainQueue, worker_},
               running_) {}

Updates::~Updates() { mainQueue_.cancel(timer_); }

void Updates::start() {
    worker_.start();
    checker_.configureNotificationCategory();
    lookAfter(firstLook);
}

void Updates::lookAfter(std::chrono::nanoseconds delay) {
    timer_ = mainQueue_.asyncAfter(delay, [this] {
        checker_.checkForUpdatesIfNeeded();
        lookAfter(laterLooks);
    });
}
} // namespace snipwren
