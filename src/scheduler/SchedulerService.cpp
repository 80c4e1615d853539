#include "scheduler/SchedulerService.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <sdbus-c++/sdbus-c++.h>

#include "scheduler/SchedulerProtocol.h"

namespace snipwren {
namespace {
/// With nothing to wait for the wall timer still stands here, because it tells when the clock is set.
constexpr Duration farFuture = std::chrono::hours(24 * 365 * 200);

timespec timespecOf(Duration sinceEpoch) {
    const auto clamped = std::clamp(sinceEpoch, Duration(1), farFuture);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(clamped);
    timespec time{};
    time.tv_sec = static_cast<time_t>(seconds.count());
    time.tv_nsec = static_cast<long>(std::chrono::nanoseconds(clamped - seconds).count());
    return time;
}

[[noreturn]] void fail(const std::string& description) {
    throw sdbus::Error(SchedulerProtocol::errorName, description); // Becomes the error reply.
}
} // namespace

SchedulerService::SchedulerService(const Dependencies& dependencies) : dependencies_(dependencies) {}

SchedulerService::~SchedulerService() {
    engine_.reset();
    notifications_.reset();
    object_.reset();
    connection_.reset();
    for (const int timer : {wallTimer_, bootTimer_})
        if (timer >= 0) ::close(timer);
}

Result<void, SchedulerService::Error> SchedulerService::start(const std::string& busName) {
    wallTimer_ = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    bootTimer_ = ::timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (wallTimer_ < 0 || bootTimer_ < 0) return unexpected(Error{"The system has no timers left.", false});
    try {
        connection_ = sdbus::createSessionBusConnection();
        notifications_ = std::make_unique<DesktopNotifications>(*connection_, dependencies_.sound, dependencies_.log);
        engine_ = std::make_unique<SchedulerEngine>(SchedulerEngine::Dependencies{
            dependencies_.store, dependencies_.clocks, *notifications_, *this, dependencies_.log});
        if (const auto loaded = engine_->load(); !loaded) return unexpected(Error{loaded.error().description, false});
        object_ = sdbus::createObject(*connection_, SchedulerProtocol::objectPath);
        registerMethods();
        notifications_->start({[this](const std::string& id, const std::string& category, const std::string& action) {
                                   object_->emitSignal("Action")
                                       .onInterface(SchedulerProtocol::interfaceName)
                                       .withArguments(id, category, action);
                               },
                               [this] { serviceAppeared_ = true; }});
        // Last, so that a request that caused the start finds everything in place.
        connection_->requestName(busName);
    } catch (const sdbus::Error& error) {
        const bool taken = error.getName() == "org.freedesktop.DBus.Error.FileExists"
                           || error.getName() == "org.freedesktop.DBus.Error.AddressInUse"
                           || error.getMessage().find("File exists") != std::string::npos;
        return unexpected(Error{"The scheduler cannot use the session bus: " + error.getMessage(), taken});
    }
    return {};
}

void SchedulerService::registerMethods() {
    const auto* const interface = SchedulerProtocol::interfaceName;
    object_->registerMethod("Add").onInterface(interface).implementedAs([this](const std::string& text) {
        auto item = ScheduledItemCodec::decode(text);
        if (!item) fail("The request could not be read.");
        if (const auto added = engine_->add(std::move(*item)); !added) fail(added.error().description);
        sweepIsDue_ = true;
    });
    object_->registerMethod("Remove").onInterface(interface).implementedAs([this](const std::string& id) {
        const auto removed = engine_->remove(id);
        if (!removed) fail(removed.error().description);
        sweepIsDue_ = true;
        return *removed;
    });
    object_->registerMethod("List").onInterface(interface).implementedAs(
        [this] { return ScheduledItemCodec::encode(engine_->pending()); });
    object_->registerMethod("Delivered").onInterface(interface).implementedAs([this] {
        return notifications_->shown();
    });
    object_->registerMethod("RemoveDelivered").onInterface(interface).implementedAs([this](const std::string& id) {
        notifications_->close(id);
    });
    object_->registerSignal("Changed").onInterface(interface);
    object_->registerSignal("Fired").onInterface(interface).withParameters<std::string, bool>();
    object_->registerSignal("Action").onInterface(interface).withParameters<std::string, std::string, std::string>();
    object_->finishRegistration();
}

void SchedulerService::pendingDidChange() {
    object_->emitSignal("Changed").onInterface(SchedulerProtocol::interfaceName);
}

void SchedulerService::didFire(const ScheduledItem& item, bool late) {
    object_->emitSignal("Fired")
        .onInterface(SchedulerProtocol::interfaceName)
        .withArguments(ScheduledItemCodec::encode(item), late);
}

void SchedulerService::armTimers() const {
    const auto next = engine_->deadlines();
    itimerspec wall{};
    wall.it_value = timespecOf(next.wall ? next.wall->time_since_epoch() : farFuture);
    itimerspec boot{}; // All zero: disarmed.
    if (next.sinceBoot) boot.it_value = timespecOf(*next.sinceBoot);
    // Setting the clock between a reading and this call cancels a timer that was armed before; this one starts afresh,
    // which is why the caller sweeps after every wake-up with clocks read anew.
    ::timerfd_settime(wallTimer_, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &wall, nullptr);
    ::timerfd_settime(bootTimer_, TFD_TIMER_ABSTIME, &boot, nullptr);
}

void SchedulerService::run() {
    const auto drain = [](int timer) {
        std::uint64_t expirations = 0;
        while (::read(timer, &expirations, sizeof expirations) > 0) {}
        // ECANCELED says that the wall clock was set; the sweep that follows reads the clocks anyway.
    };
    try {
        while (true) {
            // Before the first request is answered: what is overdue after a crash is no longer pending.
            if (std::exchange(serviceAppeared_, false)) engine_->serviceDidAppear();
            if (std::exchange(sweepIsDue_, false)) {
                engine_->sweep();
                armTimers();
            }
            while (connection_->processPendingRequest()) {}
            if (serviceAppeared_ || sweepIsDue_) continue;
            const auto bus = connection_->getEventLoopPollData();
            pollfd polled[] = {{bus.fd, bus.events, 0}, {wallTimer_, POLLIN, 0}, {bootTimer_, POLLIN, 0}};
            const int timeout = bus.timeout_usec == UINT64_MAX ? -1 : bus.getPollTimeout();
            if (::poll(polled, 3, timeout) < 0 && errno != EINTR) return;
            if ((polled[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return;
            for (const int index : {1, 2}) {
                if (polled[index].revents == 0) continue;
                drain(polled[index].fd);
                sweepIsDue_ = true;
            }
        }
    } catch (const sdbus::Error& error) {
        dependencies_.log.line("❌ SchedulerService: The session bus went away: " + error.getMessage());
    }
}
} // namespace snipwren
