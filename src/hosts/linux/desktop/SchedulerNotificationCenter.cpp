#include "hosts/linux/desktop/SchedulerNotificationCenter.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include <sdbus-c++/sdbus-c++.h>

#include "base/Text.h"
#include "hosts/linux/desktop/ProgramLauncher.h"
#include "scheduler/ScheduledItem.h"
#include "scheduler/SchedulerProtocol.h"

namespace snipwren {
namespace {
constexpr const char* notificationService = "org.freedesktop.Notifications";
constexpr const char* schedulerProgramName = "snipwren-scheduler";
constexpr auto patience = std::chrono::seconds(5);
constexpr auto startPatience = std::chrono::seconds(5);
constexpr std::size_t usualItemSize = 100;
/// Of what a request carries; the scheduler keeps it up to date when the wall clock is set.
constexpr const char* fireAtKey = "sw_fireAt";

/// What the bus takes: UTF-8 without NUL.
std::string clean(const std::string& text) { return sanitizedUtf8(replacedAll(text, std::string_view("\0", 1), "")); }

NotificationRequest requestFrom(ScheduledItem item, const Calendar& calendar) {
    NotificationRequest request;
    request.identifier = std::move(item.id);
    request.categoryIdentifier = std::move(item.category);
    request.title = std::move(item.title);
    request.subtitle = std::move(item.subtitle);
    request.body = std::move(item.body);
    request.playsSound = item.hasSound;
    request.userInfo = std::move(item.userInfo);
    if (const auto told = request.userInfo.find(fireAtKey); told != request.userInfo.end())
        told->second = secondsSince1970(item.fireAt);
    if (item.kind == ScheduledItem::Kind::interval) request.trigger = IntervalTrigger{item.interval};
    if (item.kind == ScheduledItem::Kind::moment)
        request.trigger = CalendarTrigger{calendar.civil(item.fireAt), calendar.zoneName(), item.fireAt};
    return request;
}

bool isMissing(const sdbus::Error& error) {
    return error.getName() == "org.freedesktop.DBus.Error.ServiceUnknown"
           || error.getName() == "org.freedesktop.DBus.Error.NameHasNoOwner"
           || error.getName().rfind("org.freedesktop.DBus.Error.Spawn.", 0) == 0;
}

bool isDisconnected(const sdbus::Error& error) {
    return error.getName() == "org.freedesktop.DBus.Error.Disconnected"
           || error.getName() == "org.freedesktop.DBus.Error.NoServer"
           || error.getMessage().find("not connected") != std::string::npos
           || error.getMessage().find("Connection reset") != std::string::npos;
}
} // namespace

/// One connection for questions, without a thread; one question at a time.
struct SchedulerNotificationCenter::Calls {
    explicit Calls(const Dependencies& dependencies)
        : dependencies_(dependencies),
          busName_(SchedulerProtocol::busName(dependencies.paths)) {}

    void setCategory(const NotificationCategory& category) {
        const std::lock_guard lock(mutex_);
        categories_[category.identifier] = category;
    }

    std::vector<std::pair<std::string, std::string>> actionsOf(const std::string& category) {
        const std::lock_guard lock(mutex_);
        std::vector<std::pair<std::string, std::string>> actions;
        if (const auto found = categories_.find(category); found != categories_.end())
            for (const NotificationAction& action : found->second.actions)
                actions.emplace_back(clean(action.identifier), clean(action.title));
        return actions;
    }

    /// Calls a method of the scheduler, which is started when it does not run.
    template <class... Arguments>
    Result<void, NotificationCenterError> call(const char* method, const Arguments&... arguments) {
        return attempt([&](sdbus::IProxy& scheduler) {
            scheduler.callMethod(method)
                .onInterface(SchedulerProtocol::interfaceName)
                .withTimeout(patience)
                .withArguments(arguments...);
        });
    }
    template <class Answer, class... Arguments>
    Result<Answer, NotificationCenterError> ask(const char* method, const Arguments&... arguments) {
        Answer answer{};
        const auto done = attempt([&](sdbus::IProxy& scheduler) {
            scheduler.callMethod(method)
                .onInterface(SchedulerProtocol::interfaceName)
                .withTimeout(patience)
                .withArguments(arguments...)
                .storeResultsTo(answer);
        });
        if (!done) return unexpected(done.error());
        return answer;
    }

    /// Whether anything shows notifications; a service that can be started is started by this.
    bool hasNotificationService() {
        const std::lock_guard lock(mutex_);
        try {
            connect();
            if (nameHasOwner(notificationService)) return true;
            std::string name, vendor, version, protocol;
            sdbus::createProxy(*connection_, notificationService, "/org/freedesktop/Notifications")
                ->callMethod("GetServerInformation")
                .onInterface(notificationService)
                .withTimeout(patience)
                .storeResultsTo(name, vendor, version, protocol);
            return true;
        } catch (const sdbus::Error& error) {
            if (isDisconnected(error)) disconnect();
            dependencies_.log.line("❌ SchedulerNotificationCenter: No notification service: " + error.getName());
            return false;
        }
    }

private:
    template <class Call>
    Result<void, NotificationCenterError> attempt(Call call) {
        const std::lock_guard lock(mutex_);
        std::string failure;
        // A second try after a scheduler that was not there, or a session bus that was restarted.
        for (int round = 0; round < 2; ++round) {
            try {
                connect();
                call(*scheduler_);
                return {};
            } catch (const sdbus::Error& error) {
                failure = error.getMessage();
                if (isDisconnected(error)) {
                    disconnect();
                } else if (isMissing(error) && round == 0) {
                    if (const auto problem = startScheduler()) failure = *problem;
                } else {
                    break;
                }
            }
        }
        return unexpected(NotificationCenterError{failure});
    }

    void connect() {
        if (connection_) return;
        connection_ = sdbus::createSessionBusConnection();
        scheduler_ = sdbus::createProxy(*connection_, busName_, SchedulerProtocol::objectPath);
    }
    void disconnect() {
        scheduler_.reset();
        connection_.reset();
    }

    bool nameHasOwner(const std::string& name) {
        bool owned = false;
        sdbus::createProxy(*connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus")
            ->callMethod("NameHasOwner")
            .onInterface("org.freedesktop.DBus")
            .withTimeout(patience)
            .withArguments(name)
            .storeResultsTo(owned);
        return owned;
    }

    /// The answer is why it could not be started.
    std::optional<std::string> startScheduler() {
        const auto program = dependencies_.schedulerProgram.empty() ? ProgramLauncher::find(schedulerProgramName)
                                                                    : dependencies_.schedulerProgram;
        if (!program) return "The program snipwren-scheduler is not installed.";
        std::vector<std::pair<std::string, std::string>> environment;
        if (SchedulerProtocol::isSeparate(dependencies_.paths))
            environment.emplace_back("SNIPWREN_HOME", dependencies_.paths.home);
        if (!ProgramLauncher::startDetached(*program, environment))
            return "The program " + *program + " could not be started.";
        const auto end = std::chrono::steady_clock::now() + startPatience;
        while (std::chrono::steady_clock::now() < end) {
            if (nameHasOwner(busName_)) return std::nullopt;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return "The program " + *program + " was started but does not answer.";
    }

    const Dependencies& dependencies_;
    const std::string busName_;
    std::mutex mutex_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IProxy> scheduler_;
    std::map<std::string, NotificationCategory> categories_;
};

struct SchedulerNotificationCenter::Handlers {
    std::mutex mutex;
    std::function<void(const NotificationResponse&)> response;
    std::function<NotificationPresentation(const NotificationDelivery&)> delivery;
    std::function<void()> change;

    /// The handler as it is when its turn on the main queue comes; called without the lock.
    template <class Handler, class... Arguments>
    static void post(SerialQueue& queue, const std::shared_ptr<Handlers>& handlers, Handler Handlers::*member,
                     Arguments... arguments) {
        queue.async([weak = std::weak_ptr<Handlers>(handlers), member, arguments...] {
            const auto alive = weak.lock();
            if (!alive) return;
            Handler handler;
            {
                const std::lock_guard lock(alive->mutex);
                handler = (*alive).*member;
            }
            if (handler) handler(arguments...);
        });
    }
};

/// The connection that hears the scheduler, with a thread of its own.
struct SchedulerNotificationCenter::Signals {
    Signals(const Dependencies& from, std::shared_ptr<Handlers> to)
        : dependencies(from),
          handlers(std::move(to)),
          busName(SchedulerProtocol::busName(from.paths)) {
        connect();
        loop = std::thread([this] { run(); });
    }
    ~Signals() {
        {
            const std::lock_guard lock(mutex);
            stopping = true;
            if (connection) connection->leaveEventLoop();
        }
        ended.notify_all();
        loop.join();
    }

    void connect() {
        auto fresh = sdbus::createSessionBusConnection();
        auto proxy = sdbus::createProxy(*fresh, busName, SchedulerProtocol::objectPath);
        subscribe(*fresh, *proxy);
        const std::lock_guard lock(mutex);
        scheduler = std::move(proxy);
        connection = std::move(fresh);
    }

    /// A bus that goes away, as at the end of a session, must not take the program along: it is waited for.
    void run() {
        bool told = false;
        for (;;) {
            try {
                if (!connection) connect();
                told = false;
                // Asked to leave before it has begun, the loop ends at once.
                if (!isStopping()) connection->enterEventLoop();
            } catch (const sdbus::Error& error) {
                if (!told)
                    dependencies.log.line("❌ SchedulerNotificationCenter: The session bus is gone: "
                                          + error.getMessage());
                told = true;
            }
            std::unique_lock lock(mutex);
            if (stopping) return;
            scheduler.reset();
            connection.reset();
            ended.wait_for(lock, reconnectDelay, [this] { return stopping; });
            if (stopping) return;
        }
    }

    bool isStopping() {
        const std::lock_guard lock(mutex);
        return stopping;
    }

    void subscribe(sdbus::IConnection& bus, sdbus::IProxy& proxy) {
        const auto* const interface = SchedulerProtocol::interfaceName;
        SerialQueue& queue = dependencies.mainQueue;
        proxy.uponSignal("Changed").onInterface(interface).call(
            [&queue, handlers = handlers] { Handlers::post(queue, handlers, &Handlers::change); });
        proxy.uponSignal("Fired").onInterface(interface).call(
            [&queue, &calendar = dependencies.calendar, handlers = handlers](const std::string& text, bool late) {
                if (auto item = ScheduledItemCodec::decode(text))
                    Handlers::post(queue, handlers, &Handlers::delivery,
                                   NotificationDelivery{requestFrom(std::move(*item), calendar), late});
            });
        proxy.uponSignal("Action").onInterface(interface).call(
            [&queue, handlers = handlers](const std::string& id, const std::string& category,
                                          const std::string& action) {
                Handlers::post(queue, handlers, &Handlers::response, NotificationResponse{id, category, action});
            });
        proxy.finishRegistration();
        bus.addMatch(
            "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
            "arg0='"
                + busName + "'",
            [&queue, handlers = handlers](sdbus::Message&) {
                // A scheduler that died delivers nothing until someone asks it something: the handler does.
                Handlers::post(queue, handlers, &Handlers::change);
            },
            sdbus::floating_slot);
    }

    static constexpr std::chrono::seconds reconnectDelay{2};
    const Dependencies& dependencies;
    const std::shared_ptr<Handlers> handlers;
    const std::string busName;
    std::mutex mutex;
    std::condition_variable ended;
    bool stopping = false;
    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<sdbus::IProxy> scheduler;
    std::thread loop;
};

SchedulerNotificationCenter::SchedulerNotificationCenter(Dependencies dependencies)
    : dependencies_(std::move(dependencies)),
      calls_(std::make_unique<Calls>(dependencies_)),
      handlers_(std::make_shared<Handlers>()) {}

SchedulerNotificationCenter::~SchedulerNotificationCenter() = default;

NotificationSettings SchedulerNotificationCenter::settings() {
    NotificationSettings settings;
    settings.authorization = calls_->hasNotificationService() ? NotificationSettings::Authorization::authorized
                                                              : NotificationSettings::Authorization::denied;
    settings.alertsEnabled = dependencies_.defaults.boolean(alertsSetting).value_or(true);
    return settings;
}

bool SchedulerNotificationCenter::requestAuthorization() {
    // There is nobody to ask: what shows notifications shows ours.
    return settings().authorization == NotificationSettings::Authorization::authorized;
}

void SchedulerNotificationCenter::setCategory(const NotificationCategory& category) { calls_->setCategory(category); }

Result<void, NotificationCenterError> SchedulerNotificationCenter::add(const NotificationRequest& request) {
    ScheduledItem item;
    item.id = clean(request.identifier);
    item.category = clean(request.categoryIdentifier);
    item.title = clean(request.title);
    item.subtitle = clean(request.subtitle);
    item.body = clean(request.body);
    item.hasSound = request.playsSound;
    item.userInfo = request.userInfo;
    item.actions = calls_->actionsOf(request.categoryIdentifier);
    if (const auto* interval = std::get_if<IntervalTrigger>(&request.trigger)) {
        item.kind = ScheduledItem::Kind::interval;
        item.interval = interval->interval;
        const auto told = request.userInfo.find(fireAtKey);
        item.fireAt = told != request.userInfo.end() ? fromSecondsSince1970(told->second)
                                                     : dependencies_.clock.now() + interval->interval;
    } else if (const auto* calendar = std::get_if<CalendarTrigger>(&request.trigger)) {
        item.kind = ScheduledItem::Kind::moment;
        item.fireAt = calendar->moment;
    }
    return calls_->call("Add", ScheduledItemCodec::encode(item));
}

Result<std::vector<NotificationRequest>, NotificationCenterError> SchedulerNotificationCenter::pending() {
    const auto text = calls_->ask<std::string>("List");
    if (!text) return unexpected(text.error());
    std::vector<NotificationRequest> requests;
    requests.reserve(text->size() / usualItemSize + 1); // Growing piece by piece costs more than reading them all.
    const bool whole = ScheduledItemCodec::decodeEach(
        *text, [&](ScheduledItem&& item) { requests.push_back(requestFrom(std::move(item), dependencies_.calendar)); });
    if (!whole)
        return unexpected(NotificationCenterError{
            "The scheduler is of another version. End the program snipwren-scheduler and try again."});
    return requests;
}

Result<void, NotificationCenterError> SchedulerNotificationCenter::removePending(const std::string& identifier) {
    if (auto removed = calls_->ask<bool>("Remove", clean(identifier)); !removed) return unexpected(removed.error());
    return {};
}

std::vector<std::string> SchedulerNotificationCenter::delivered() {
    return calls_->ask<std::vector<std::string>>("Delivered").value_or(std::vector<std::string>());
}

void SchedulerNotificationCenter::removeDelivered(const std::string& identifier) {
    if (const auto removed = calls_->call("RemoveDelivered", clean(identifier)); !removed)
        dependencies_.log.line("❌ SchedulerNotificationCenter: Could not take back a notification: "
                               + removed.error().description);
}

void SchedulerNotificationCenter::listen() {
    if (signals_) return;
    try {
        signals_ = std::make_unique<Signals>(dependencies_, handlers_);
    } catch (const sdbus::Error& error) {
        dependencies_.log.line("❌ SchedulerNotificationCenter: Cannot listen on the session bus: "
                               + error.getMessage());
    }
}

void SchedulerNotificationCenter::setResponseHandler(std::function<void(const NotificationResponse&)> handler) {
    {
        const std::lock_guard lock(handlers_->mutex);
        handlers_->response = std::move(handler);
    }
    listen();
}

void SchedulerNotificationCenter::setDeliveryHandler(
    std::function<NotificationPresentation(const NotificationDelivery&)> handler) {
    {
        const std::lock_guard lock(handlers_->mutex);
        handlers_->delivery = std::move(handler);
    }
    listen();
}

void SchedulerNotificationCenter::setPendingChangeHandler(std::function<void()> handler) {
    {
        const std::lock_guard lock(handlers_->mutex);
        handlers_->change = std::move(handler);
    }
    listen();
}
} // namespace snipwren
