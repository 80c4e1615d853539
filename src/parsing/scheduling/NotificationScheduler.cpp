#include "parsing/scheduling/NotificationScheduler.h"

#include <algorithm>

#include <fmt/format.h>

namespace snipwren {
namespace {
using Kind = PendingScheduledCapture::Kind;

std::optional<TimePoint> moment(const NotificationRequest& request, const char* key) {
    const auto found = request.userInfo.find(key);
    if (found == request.userInfo.end()) return std::nullopt;
    return fromSecondsSince1970(found->second);
}

std::optional<TimePoint> fireDate(const NotificationRequest& request) {
    if (const auto told = moment(request, NotificationScheduler::fireAtKey)) return told;
    if (const auto* calendar = std::get_if<CalendarTrigger>(&request.trigger)) return calendar->moment;
    const auto* interval = std::get_if<IntervalTrigger>(&request.trigger);
    const auto scheduledAt = moment(request, NotificationScheduler::scheduledAtKey);
    if (interval && scheduledAt) return *scheduledAt + interval->interval;
    return std::nullopt;
}

std::optional<Kind> kindOf(const std::string& category) {
    if (category == NotificationScheduler::timerCategory) return Kind::timer;
    if (category == NotificationScheduler::alarmCategory) return Kind::alarm;
    return std::nullopt;
}
} // namespace

std::string message(const NotificationSchedulerError& error) {
    using enum NotificationSchedulerError::Case;
    switch (error.kind) {
    case permissionDenied:
        return "Notifications access was denied. Open Settings → Privacy & Permissions in Snipwren and tap Grant next "
               "to Notifications.";
    case alertsDisabled:
        return "Notifications are allowed but Banners/Alerts are turned off for Snipwren. Enable Alerts in System "
               "Settings → Notifications → Snipwren.";
    case schedulingFailed: return "Could not schedule the notification (" + error.detail + ")";
    }
    return {};
}

NotificationScheduler::NotificationScheduler(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

void NotificationScheduler::configureCategories() {
    for (const char* category : {timerCategory, alarmCategory, reminderCategory})
        dependencies_.center.setCategory({category, {}});
}

Result<void, NotificationSchedulerError> NotificationScheduler::ensureAuthorization() {
    using enum NotificationSettings::Authorization;
    NotificationSettings settings = dependencies_.center.settings();
    if (settings.authorization == notDetermined) {
        if (dependencies_.bringToFront) dependencies_.bringToFront();
        if (!dependencies_.center.requestAuthorization()) return unexpected(Error{Error::Case::permissionDenied, {}});
        settings = dependencies_.center.settings();
    }
    if (settings.authorization == denied) return unexpected(Error{Error::Case::permissionDenied, {}});
    if (!settings.alertsEnabled) return unexpected(Error{Error::Case::alertsDisabled, {}});
    return {};
}

std::string NotificationScheduler::body(Kind kind, const std::string& title) {
    return kind == Kind::timer ? timerBody : title;
}

Result<ScheduledNotificationResult, NotificationSchedulerError>
NotificationScheduler::scheduleTimer(Duration interval, const std::optional<std::string>& label,
                                     std::optional<std::string> identifier) {
    if (const auto allowed = ensureAuthorization(); !allowed) return unexpected(allowed.error());
    NotificationRequest request = makeRequest(timerCategory, std::move(identifier));
    request.title = label.value_or(defaultTimerTitle);
    request.body = timerBody;
    interval = std::max(interval, shortestWait);
    request.trigger = IntervalTrigger{interval};
    const TimePoint fireDate = dependencies_.clock.now() + interval;
    return registerCapture(std::move(request), fireDate,
                           fmt::format("⏱️ NotificationScheduler: Timer registered — fires in {:.0f}s at {}",
                                       std::chrono::duration<double>(interval).count(), isoUtc(fireDate)));
}

Result<ScheduledNotificationResult, NotificationSchedulerError>
NotificationScheduler::scheduleAlarm(TimePoint at, const std::string& title, std::optional<std::string> identifier) {
    if (const auto allowed = ensureAuthorization(); !allowed) return unexpected(allowed.error());
    at = notPassed(at);
    return registerCapture(requestAtMoment(alarmCategory, at, title, std::move(identifier)), at,
                           "⏰ NotificationScheduler: Alarm registered — fires at " + isoUtc(at));
}

Result<ScheduledNotificationResult, NotificationSchedulerError>
NotificationScheduler::scheduleReminderAlarm(TimePoint at, const std::string& title,
                                             std::optional<std::string> identifier) {
    if (const auto allowed = ensureAuthorization(); !allowed) return unexpected(allowed.error());
    at = notPassed(at);
    NotificationRequest request = requestAtMoment(reminderCategory, at, title, std::move(identifier));
    return registerRequest(request, at);
}

TimePoint NotificationScheduler::notPassed(TimePoint at) const {
    return std::max(at, dependencies_.clock.now() + shortestWait);
}

NotificationRequest NotificationScheduler::makeRequest(const char* category,
                                                       std::optional<std::string> identifier) const {
    NotificationRequest request;
    request.identifier = identifier ? std::move(*identifier) : dependencies_.random.uuid();
    request.categoryIdentifier = category;
    request.playsSound = true;
    return request;
}

NotificationRequest NotificationScheduler::requestAtMoment(const char* category, TimePoint at, const std::string& title,
                                                           std::optional<std::string> identifier) const {
    NotificationRequest request = makeRequest(category, std::move(identifier));
    request.title = title.empty() ? defaultAlarmTitle : title;
    request.body = body(Kind::alarm, title);
    request.trigger = CalendarTrigger{dependencies_.calendar.civil(at), dependencies_.calendar.zoneName(), at};
    return request;
}

Result<ScheduledNotificationResult, NotificationSchedulerError>
NotificationScheduler::registerRequest(NotificationRequest& request, TimePoint fireDate) {
    request.userInfo = {{scheduledAtKey, secondsSince1970(dependencies_.clock.now())},
                        {fireAtKey, secondsSince1970(fireDate)}};
    if (const auto added = addAndVerify(request); !added) return unexpected(added.error());
    return ScheduledNotificationResult{request.identifier, fireDate};
}

Result<ScheduledNotificationResult, NotificationSchedulerError>
NotificationScheduler::registerCapture(NotificationRequest request, TimePoint fireDate, const std::string& logLine) {
    auto done = registerRequest(request, fireDate);
    if (!done) return done;
    dependencies_.fallback.schedule(request.identifier, fireDate, request.title, request.body);
    dependencies_.log.line(logLine);
    dependencies_.notifications.post(scheduledCapturesChanged);
    return done;
}

Result<void, NotificationSchedulerError> NotificationScheduler::addAndVerify(const NotificationRequest& request) {
    const auto failed = [](std::string detail) {
        return unexpected(Error{Error::Case::schedulingFailed, std::move(detail)});
    };
    if (const auto added = dependencies_.center.add(request); !added) {
        dependencies_.log.line("❌ NotificationScheduler: Failed to add notification: " + added.error().description);
        return failed(added.error().description);
    }
    const auto pending = dependencies_.center.pending();
    const auto isOurs = [&](const auto& held) { return held.identifier == request.identifier; };
    if (pending && std::any_of(pending->begin(), pending->end(), isOurs)) return {};
    // A moment that came between the two questions: delivered is better than pending.
    const auto delivered = dependencies_.center.delivered();
    if (std::find(delivered.begin(), delivered.end(), request.identifier) != delivered.end()) return {};
    dependencies_.log.line("❌ NotificationScheduler: add() succeeded but request " + request.identifier
                           + " is not pending");
    // What the system does not list must not ring later, when the user was told that it failed.
    (void)dependencies_.center.removePending(request.identifier);
    return failed("macOS did not register the notification. Check Snipwren → Notifications in System Settings and "
                  "enable Banners/Alerts.");
}

Result<std::vector<PendingScheduledCapture>, NotificationCenterError> NotificationScheduler::listPendingCaptures() {
    auto pending = dependencies_.center.pending();
    if (!pending) return unexpected(pending.error());
    std::vector<PendingScheduledCapture> captures;
    for (NotificationRequest& request : *pending) {
        const auto kind = kindOf(request.categoryIdentifier);
        if (!kind) continue;
        const auto fires = fireDate(request);
        captures.push_back({std::move(request.identifier), *kind, std::move(request.title), std::move(request.subtitle),
                            fires, moment(request, scheduledAtKey)});
    }
    std::stable_sort(captures.begin(), captures.end(), [](const auto& left, const auto& right) {
        return left.fireDate.value_or(TimePoint::max()) < right.fireDate.value_or(TimePoint::max());
    });
    return captures;
}

Result<void, NotificationCenterError> NotificationScheduler::cancelPendingCapture(const std::string& identifier) {
    if (auto removed = dependencies_.center.removePending(identifier); !removed) return removed;
    dependencies_.fallback.cancel(identifier);
    dependencies_.notifications.post(scheduledCapturesChanged);
    return {};
}
} // namespace snipwren
