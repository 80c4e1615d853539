#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

namespace snipwren {
/// org.freedesktop.Notifications on the session bus, with a thread of its own. Destroying it is a service that dies.
class FakeNotificationService {
public:
    enum class Mood { accepts, refuses };
    struct Shown {
        std::uint32_t number = 0;
        std::string title;
        std::string body;
        std::vector<std::string> actions;
        bool hasSoundName = false;
    };
    static constexpr const char* name = "org.freedesktop.Notifications";

    explicit FakeNotificationService(std::vector<std::string> capabilities = {"body", "body-markup", "actions",
                                                                              "sound"},
                                     Mood mood = Mood::accepts)
        : connection_(sdbus::createSessionBusConnection()) {
        object_ = sdbus::createObject(*connection_, "/org/freedesktop/Notifications");
        object_->registerMethod("GetCapabilities").onInterface(name).implementedAs([capabilities] {
            return capabilities;
        });
        object_->registerMethod("GetServerInformation").onInterface(name).implementedAs([] {
            return std::make_tuple(std::string("fake"), std::string("test"), std::string("1"), std::string("1.2"));
        });
        object_->registerMethod("Notify").onInterface(name).implementedAs(
            [this, mood](const std::string&, const std::uint32_t&, const std::string&, const std::string& title,
                         const std::string& body, const std::vector<std::string>& actions,
                         const std::map<std::string, sdbus::Variant>& hints, const std::int32_t&) {
                if (mood == Mood::refuses) throw sdbus::Error("org.freedesktop.Notifications.Error", "no");
                const std::lock_guard lock(mutex_);
                shown_.push_back({static_cast<std::uint32_t>(shown_.size() + 1), title, body, actions,
                                  hints.count("sound-name") > 0});
                changed_.notify_all();
                return shown_.back().number;
            });
        object_->registerMethod("CloseNotification")
            .onInterface(name)
            .implementedAs([this](const std::uint32_t& number) {
                const std::lock_guard lock(mutex_);
                closed_.push_back(number);
                changed_.notify_all();
            });
        object_->registerSignal("ActionInvoked").onInterface(name).withParameters<std::uint32_t, std::string>();
        object_->registerSignal("NotificationClosed").onInterface(name).withParameters<std::uint32_t, std::uint32_t>();
        object_->finishRegistration();
        connection_->requestName(name);
        connection_->enterEventLoopAsync();
    }
    ~FakeNotificationService() { connection_->leaveEventLoop(); }

    /// What was shown once `isEnough` holds; also when it still does not after a generous time.
    std::vector<Shown> waitFor(const std::function<bool(const std::vector<Shown>&)>& isEnough) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return isEnough(shown_); });
        return shown_;
    }
    std::vector<Shown> waitForCount(std::size_t count) {
        return waitFor([count](const auto& shown) { return shown.size() >= count; });
    }
    std::vector<std::uint32_t> waitForClosed() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return !closed_.empty(); });
        return closed_;
    }
    /// The user presses a button; the service need not send that the notification closed.
    void press(std::uint32_t number, const std::string& action) {
        object_->emitSignal("ActionInvoked").onInterface(name).withArguments(number, action);
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Shown> shown_;
    std::vector<std::uint32_t> closed_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IObject> object_;
};
} // namespace snipwren
