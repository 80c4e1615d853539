#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/Calendar.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Random.h"
#include "base/Result.h"
#include "parsing/scheduling/PendingScheduledCapture.h"
#include "parsing/scheduling/TimerCompletionFallback.h"
#include "platform/UserNotificationCenter.h"

namespace snipwren {
struct ScheduledNotificationResult {
    std::string identifier;
    TimePoint fireDate;
};

struct NotificationSchedulerError {
    enum class Case { permissionDenied, alertsDisabled, schedulingFailed };
    Case kind = Case::schedulingFailed;
    /// The system's words; for schedulingFailed only.
    std::string detail;
    friend bool operator==(const NotificationSchedulerError&, const NotificationSchedulerError&) = default;
};
/// The sentence shown to the user as it stands.
std::string message(const NotificationSchedulerError& error);

/// Registers timers and alarms as notifications of the system, makes sure that the system really holds them, lists and
/// cancels them. The operations block while the system answers and may be called on any thread but the main queue's.
class NotificationScheduler {
public:
    static constexpr const char* timerCategory = "SNIPWRN_TIMER";
    static constexpr const char* alarmCategory = "SNIPWRN_ALARM";
    /// Alarms of reminders whose store rings none. They are not captures of their own, so no list shows them.
    static constexpr const char* reminderCategory = "SNIPWRN_REMINDER";
    static constexpr const char* defaultTimerTitle = "Timer finished";
    static constexpr const char* defaultAlarmTitle = "Alarm";
    /// A request for an earlier moment would have rung, and be gone, before it is looked for among the pending ones.
    static constexpr Duration shortestWait = std::chrono::seconds(1);
    static constexpr const char* timerBody = "Your timer is done";
    static constexpr const char* scheduledAtKey = "sw_scheduledAt";
    static constexpr const char* fireAtKey = "sw_fireAt";

    struct Dependencies {
        UserNotificationCenter& center;
        TimerCompletionFallback& fallback;
        const Calendar& calendar;
        Clock& clock;
        Random& random;
        Log& log;
        NotificationCenter& notifications;
        /// Brings the application to the front before the user is asked for permission; may be empty.
        std::function<void()> bringToFront;
    };
    using Error = NotificationSchedulerError;

    explicit NotificationScheduler(Dependencies dependencies);

    /// At start-up.
    void configureCategories();
    Result<void, Error> ensureAuthorization();
    /// Without an identifier a new one is made; a pending request of the same identifier is replaced. A moment that has
    /// passed rings at once.
    Result<ScheduledNotificationResult, Error> scheduleTimer(Duration interval, const std::optional<std::string>& label,
                                                             std::optional<std::string> identifier = std::nullopt);
    Result<ScheduledNotificationResult, Error> scheduleAlarm(TimePoint at, const std::string& title,
                                                             std::optional<std::string> identifier = std::nullopt);
    /// The alarm of a reminder, in the reminders' own category. Without the fallback: the delivery shows the panel.
    Result<ScheduledNotificationResult, Error>
    scheduleReminderAlarm(TimePoint at, const std::string& title, std::optional<std::string> identifier = std::nullopt);
    /// By fire date; those without one last.
    Result<std::vector<PendingScheduledCapture>, NotificationCenterError> listPendingCaptures();
    /// An identifier that is not pending is no error.
    Result<void, NotificationCenterError> cancelPendingCapture(const std::string& identifier);

    /// The text under the title of a timer's or alarm's notification.
    static std::string body(PendingScheduledCapture::Kind kind, const std::string& title);

private:
    TimePoint notPassed(TimePoint at) const;
    NotificationRequest makeRequest(const char* category, std::optional<std::string> identifier) const;
    NotificationRequest requestAtMoment(const char* category, TimePoint at, const std::string& title,
                                        std::optional<std::string> identifier) const;
    Result<ScheduledNotificationResult, Error> registerRequest(NotificationRequest& request, TimePoint fireDate);
    Result<ScheduledNotificationResult, Error> registerCapture(NotificationRequest request, TimePoint fireDate,
                                                               const std::string& logLine);
    Result<void, Error> addAndVerify(const NotificationRequest& request);

    const Dependencies dependencies_;
};
} // namespace snipwren
