#include "hosts/virtual/VirtualNotificationCenter.h"

#include <algorithm>

namespace snipwren {
VirtualNotificationCenter::VirtualNotificationCenter(SerialQueue& mainQueue, Clock& clock)
    : mainQueue_(mainQueue),
      clock_(clock),
      state_(std::make_shared<State>()) {}

VirtualNotificationCenter::~VirtualNotificationCenter() {
    const std::lock_guard lock(state_->mutex);
    for (const auto& [identifier, waiting] : state_->waiting) mainQueue_.cancel(waiting.timer);
}

void VirtualNotificationCenter::setSettings(const NotificationSettings& settings, bool grantsWhenAsked) {
    const std::lock_guard lock(state_->mutex);
    state_->settings = settings;
    state_->grantsWhenAsked = grantsWhenAsked;
}

void VirtualNotificationCenter::setDropsSilently(bool drops) {
    const std::lock_guard lock(state_->mutex);
    state_->dropsSilently = drops;
}

NotificationSettings VirtualNotificationCenter::settings() {
    const std::lock_guard lock(state_->mutex);
    return state_->settings;
}

bool VirtualNotificationCenter::requestAuthorization() {
    using enum NotificationSettings::Authorization;
    const std::lock_guard lock(state_->mutex);
    state_->settings.authorization = state_->grantsWhenAsked ? authorized : denied;
    return state_->grantsWhenAsked;
}

void VirtualNotificationCenter::setCategory(const NotificationCategory& category) {
    const std::lock_guard lock(state_->mutex);
    state_->categories[category.identifier] = category;
}

Result<void, NotificationCenterError> VirtualNotificationCenter::add(const NotificationRequest& request) {
    Waiting waiting{request, std::nullopt, std::nullopt, 0};
    if (const auto* interval = std::get_if<IntervalTrigger>(&request.trigger))
        waiting.steadyMoment = clock_.steadyNow() + interval->interval;
    else if (const auto* calendar = std::get_if<CalendarTrigger>(&request.trigger))
        waiting.wallMoment = calendar->moment;
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->settings.authorization != NotificationSettings::Authorization::authorized)
            return unexpected(NotificationCenterError{"Notifications are not allowed for this application."});
        if (state_->dropsSilently) return {};
        if (const auto old = state_->waiting.find(request.identifier); old != state_->waiting.end()) {
            mainQueue_.cancel(old->second.timer);
            state_->waiting.erase(old);
        }
        arm(state_->waiting[request.identifier] = std::move(waiting));
    }
    tellChange();
    return {};
}

void VirtualNotificationCenter::arm(Waiting& waiting) {
    std::chrono::nanoseconds delay{0};
    if (waiting.steadyMoment) delay = *waiting.steadyMoment - clock_.steadyNow();
    if (waiting.wallMoment) delay = *waiting.wallMoment - clock_.now();
    waiting.timer =
        mainQueue_.asyncAfter(std::max(delay, std::chrono::nanoseconds(0)),
                              [this, identifier = waiting.request.identifier, alive = std::weak_ptr<State>(state_)] {
                                  if (!alive.expired()) deliverDue(identifier);
                              });
}

void VirtualNotificationCenter::deliverDue(const std::string& identifier) {
    NotificationRequest request;
    {
        const std::lock_guard lock(state_->mutex);
        const auto found = state_->waiting.find(identifier);
        if (found == state_->waiting.end()) return;
        const Waiting& waiting = found->second;
        const bool isEarly = (waiting.steadyMoment && *waiting.steadyMoment > clock_.steadyNow())
                             || (waiting.wallMoment && *waiting.wallMoment > clock_.now());
        if (isEarly) return arm(found->second); // The clock was set back, or the request replaced.
        request = waiting.request;
        state_->waiting.erase(found);
    }
    deliver(request);
}

void VirtualNotificationCenter::deliver(const NotificationRequest& request) {
    NotificationDelivery delivery{request, false};
    std::function<NotificationPresentation(const NotificationDelivery&)> handler;
    {
        const std::lock_guard lock(state_->mutex);
        state_->history.push_back(delivery);
        std::erase_if(state_->shown, [&](const auto& old) { return old.identifier == request.identifier; });
        state_->shown.push_back(request);
        handler = state_->deliveryHandler;
    }
    if (handler) handler(delivery);
    tellChange();
}

void VirtualNotificationCenter::tellChange() {
    mainQueue_.async([alive = std::weak_ptr<State>(state_)] {
        const auto state = alive.lock();
        if (!state) return;
        std::function<void()> handler;
        {
            const std::lock_guard lock(state->mutex);
            handler = state->changeHandler;
        }
        if (handler) handler();
    });
}

void VirtualNotificationCenter::clockDidChange() {
    const std::lock_guard lock(state_->mutex);
    for (auto& [identifier, waiting] : state_->waiting) {
        mainQueue_.cancel(waiting.timer);
        arm(waiting);
    }
}

std::vector<NotificationDelivery> VirtualNotificationCenter::history() const {
    const std::lock_guard lock(state_->mutex);
    return state_->history;
}

void VirtualNotificationCenter::respond(const std::string& identifier, const std::string& actionIdentifier) {
    mainQueue_.async([identifier, actionIdentifier, alive = std::weak_ptr<State>(state_)] {
        const auto state = alive.lock();
        if (!state) return;
        NotificationResponse response{identifier, {}, actionIdentifier};
        std::function<void(const NotificationResponse&)> handler;
        {
            const std::lock_guard lock(state->mutex);
            const auto isIt = [&](const auto& shown) { return shown.identifier == identifier; };
            const auto found = std::find_if(state->shown.begin(), state->shown.end(), isIt);
            if (found == state->shown.end()) return;
            response.categoryIdentifier = found->categoryIdentifier;
            state->shown.erase(found);
            handler = state->responseHandler;
        }
        if (handler) handler(response);
    });
}

Result<std::vector<NotificationRequest>, NotificationCenterError> VirtualNotificationCenter::pending() {
    const std::lock_guard lock(state_->mutex);
    std::vector<NotificationRequest> requests;
    for (const auto& [identifier, waiting] : state_->waiting)
        if (waiting.steadyMoment || waiting.wallMoment) requests.push_back(waiting.request);
    return requests;
}

Result<void, NotificationCenterError> VirtualNotificationCenter::removePending(const std::string& identifier) {
    {
        const std::lock_guard lock(state_->mutex);
        const auto found = state_->waiting.find(identifier);
        if (found == state_->waiting.end()) return {};
        mainQueue_.cancel(found->second.timer);
        state_->waiting.erase(found);
    }
    tellChange();
    return {};
}

std::vector<std::string> VirtualNotificationCenter::delivered() {
    const std::lock_guard lock(state_->mutex);
    std::vector<std::string> identifiers;
    for (const NotificationRequest& request : state_->shown) identifiers.push_back(request.identifier);
    return identifiers;
}

void VirtualNotificationCenter::removeDelivered(const std::string& identifier) {
    const std::lock_guard lock(state_->mutex);
    std::erase_if(state_->shown, [&](const auto& old) { return old.identifier == identifier; });
}

void VirtualNotificationCenter::setResponseHandler(std::function<void(const NotificationResponse&)> handler) {
    const std::lock_guard lock(state_->mutex);
    state_->responseHandler = std::move(handler);
}

void VirtualNotificationCenter::setDeliveryHandler(
    std::function<NotificationPresentation(const NotificationDelivery&)> handler) {
    const std::lock_guard lock(state_->mutex);
    state_->deliveryHandler = std::move(handler);
}

void VirtualNotificationCenter::setPendingChangeHandler(std::function<void()> handler) {
    const std::lock_guard lock(state_->mutex);
    state_->changeHandler = std::move(handler);
}
} // namespace snipwren
