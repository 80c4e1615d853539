#include "app/Scheduling.h"

namespace snipwren {
Scheduling::Scheduling(Environment& environment, UserNotificationCenter& center, HeadsUpPanel& panel)
    : workQueue_("com.snipwren.app.scheduled"),
      fallback_({environment.mainQueue(), environment.clock(), panel, environment.notifications()}),
      scheduler_({center,
                  fallback_,
                  environment.calendar(),
                  environment.clock(),
                  environment.random(),
                  environment.log(),
                  environment.notifications(),
                  {}}),
      delegate_({center, fallback_, environment.notifications()}),
      countdown_({scheduler_, fallback_, environment.mainQueue(), workQueue_, environment.clock(),
                  environment.notifications()}) {}

Scheduling::~Scheduling() {
    countdown_.stop();
    // What still asks the scheduler ends before the scheduler goes.
    if (workStarted_) workQueue_.sync([] {});
}

void Scheduling::start() {
    scheduler_.configureCategories();
    delegate_.attach();
}

void Scheduling::cancelInBackground(const std::string& identifier, std::function<void(const std::string&)> failed) {
    workQueue_.async([this, identifier, failed = std::move(failed)] {
        if (const auto cancelled = scheduler_.cancelPendingCapture(identifier); !cancelled)
            failed("It could not be cancelled: " + cancelled.error().description);
    });
}

void Scheduling::startCountdown(ActiveCountdownController::Display display) {
    workQueue_.start();
    workStarted_ = true;
    countdown_.start(std::move(display));
}
} // namespace snipwren
