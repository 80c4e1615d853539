#include "scheduler/DesktopNotifications.h"

#include <algorithm>

#include <fmt/format.h>
#include <sdbus-c++/sdbus-c++.h>

namespace snipwren {
namespace {
constexpr const char* serviceName = "org.freedesktop.Notifications";
constexpr const char* servicePath = "/org/freedesktop/Notifications";
constexpr auto patience = std::chrono::seconds(3);
/// A service that hangs is left alone that long, so that it does not hold up everything else that is due.
constexpr auto pause = std::chrono::seconds(30);
constexpr std::uint32_t dismissedByUser = 2;
constexpr std::uint8_t criticalUrgency = 2;
constexpr std::uint8_t normalUrgency = 1;
} // namespace

DesktopNotifications::DesktopNotifications(sdbus::IConnection& connection, SoundPlayer& sound, Log& log)
    : connection_(connection),
      sound_(sound),
      log_(log) {}

DesktopNotifications::~DesktopNotifications() = default;

void DesktopNotifications::start(Handlers handlers) {
    handlers_ = std::move(handlers);
    service_ = sdbus::createProxy(connection_, serviceName, servicePath);
    service_->uponSignal("ActionInvoked")
        .onInterface(serviceName)
        .call([this](std::uint32_t number, std::string action) {
            // Some services send no NotificationClosed after an action.
            tell(number, action);
            shown_.erase(number);
        });
    service_->uponSignal("NotificationClosed")
        .onInterface(serviceName)
        .call([this](std::uint32_t number, std::uint32_t reason) {
            if (reason == dismissedByUser) tell(number, "dismiss");
            shown_.erase(number);
        });
    service_->finishRegistration();
    // Matched by the bus, which would otherwise wake us for every program that comes or goes.
    connection_.addMatch(
        "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
        "arg0='org.freedesktop.Notifications'",
        [this](sdbus::Message& message) {
            std::string name, oldOwner, newOwner;
            message >> name >> oldOwner >> newOwner;
            capabilities_.reset();
            shown_.clear();
            leftAloneUntil_ = {};
            if (!newOwner.empty() && handlers_.serviceAppeared) handlers_.serviceAppeared();
        },
        sdbus::floating_slot);
}

void DesktopNotifications::tell(std::uint32_t number, const std::string& action) {
    const auto found = shown_.find(number);
    if (found != shown_.end() && handlers_.action) handlers_.action(found->second.id, found->second.category, action);
}

std::optional<DesktopNotifications::Capabilities> DesktopNotifications::capabilities() {
    if (capabilities_) return capabilities_;
    std::vector<std::string> names;
    service_->callMethod("GetCapabilities").onInterface(serviceName).withTimeout(patience).storeResultsTo(names);
    const auto has = [&](const char* name) { return std::find(names.begin(), names.end(), name) != names.end(); };
    capabilities_ = Capabilities{has("body-markup"), has("sound"), has("actions")};
    return capabilities_;
}

bool DesktopNotifications::show(const ScheduledItem& item, Duration lateBy) {
    std::string body = item.subtitle;
    for (const std::string& part : {item.body, lateBy > Duration::zero() ? lateness(lateBy) : std::string()})
        if (!part.empty()) body += (body.empty() ? "" : "\n") + part;
    if (std::chrono::steady_clock::now() < leftAloneUntil_) {
        if (item.hasSound) sound_.playAlarm();
        return false;
    }
    try {
        const auto can = capabilities();
        if (can->markup) body = escaped(body);
        std::vector<std::string> actions;
        if (can->actions && !item.actions.empty()) {
            actions = {"default", item.title};
            for (const auto& [id, title] : item.actions) actions.insert(actions.end(), {id, title});
        }
        const bool timed = item.kind != ScheduledItem::Kind::atOnce;
        std::map<std::string, sdbus::Variant> hints;
        hints["urgency"] = sdbus::Variant(timed ? criticalUrgency : normalUrgency);
        hints["desktop-entry"] = sdbus::Variant(std::string("com.snipwren.app"));
        if (item.hasSound && can->sound) hints["sound-name"] = sdbus::Variant(std::string("alarm-clock-elapsed"));
        std::uint32_t number = 0;
        service_->callMethod("Notify")
            .onInterface(serviceName)
            .withTimeout(patience)
            .withArguments(std::string("Snipwren"), std::uint32_t{0}, std::string("com.snipwren.app"), item.title, body,
                           actions, hints, std::int32_t{timed ? 0 : -1})
            .storeResultsTo(number);
        shown_[number] = {item.id, item.category};
        if (item.hasSound && !can->sound) sound_.playAlarm();
        return true;
    } catch (const sdbus::Error& error) {
        // The panel of our own still shows it; the sound is for those who look elsewhere.
        if (item.hasSound) sound_.playAlarm();
        if (error.getName() == "org.freedesktop.DBus.Error.NoReply"
            || error.getName() == "org.freedesktop.DBus.Error.Timeout")
            leftAloneUntil_ = std::chrono::steady_clock::now() + pause;
        log_.line("❌ DesktopNotifications: No notification service took " + item.id + ": " + error.getName());
        return false;
    }
}

std::vector<std::string> DesktopNotifications::shown() const {
    std::vector<std::string> ids;
    for (const auto& [number, shown] : shown_) ids.push_back(shown.id);
    return ids;
}

void DesktopNotifications::close(const std::string& id) {
    for (auto it = shown_.begin(); it != shown_.end();) {
        if (it->second.id != id) {
            ++it;
            continue;
        }
        try {
            service_->callMethod("CloseNotification")
                .onInterface(serviceName)
                .withTimeout(patience)
                .withArguments(it->first);
        } catch (const sdbus::Error& error) {
            log_.line("❌ DesktopNotifications: Could not close a notification: " + error.getName());
        }
        it = shown_.erase(it);
    }
}

std::string DesktopNotifications::lateness(Duration lateBy) {
    const auto text = [](long long count, const char* unit) {
        return fmt::format("{} {}{} late", count, unit, count == 1 ? "" : "s");
    };
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(lateBy).count();
    if (seconds < 60) return text(seconds, "second");
    if (seconds < 3600) return text(seconds / 60, "minute");
    if (seconds < 48 * 3600) return text(seconds / 3600, "hour");
    return text(seconds / 86400, "day");
}

std::string DesktopNotifications::escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        default: out += c;
        }
    }
    return out;
}
} // namespace snipwren
