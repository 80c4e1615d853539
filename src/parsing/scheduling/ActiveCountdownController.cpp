#include "parsing/scheduling/ActiveCountdownController.h"

#include <algorithm>

#include <fmt/format.h>

namespace snipwren {
ActiveCountdownController::ActiveCountdownController(const Dependencies& dependencies) : dependencies_(dependencies) {}

ActiveCountdownController::~ActiveCountdownController() { stop(); }

void ActiveCountdownController::start(Display display) {
    stop();
    display_ = std::move(display);
    alive_ = std::make_shared<int>(0);
    subscription_ =
        dependencies_.notifications.observe(scheduledCapturesChanged, [this](const UserInfo&) { reload(); });
    reload();
}

void ActiveCountdownController::stop() {
    subscription_.reset();
    alive_.reset();
    cancelTick();
    isLoading_ = isStale_ = false;
    pending_.clear();
    current_.reset();
}

void ActiveCountdownController::reload() {
    // One question at a time: changes that come in meanwhile are covered by one more.
    if (isLoading_) {
        isStale_ = true;
        return;
    }
    isLoading_ = true;
    dependencies_.workQueue.async([this, &scheduler = dependencies_.scheduler, &mainQueue = dependencies_.mainQueue,
                                   alive = std::weak_ptr<int>(alive_)] {
        auto answer = scheduler.listPendingCaptures();
        mainQueue.async([this, alive, answer = std::move(answer)] {
            if (alive.expired()) return;
            isLoading_ = false;
            // When the system does not answer, what was known still counts down.
            if (answer) {
                pending_ = *answer;
                dependencies_.fallback.adopt(pending_);
            }
            render();
            if (std::exchange(isStale_, false)) reload();
        });
    });
}

void ActiveCountdownController::render() {
    cancelTick();
    const TimePoint now = dependencies_.clock.now();
    const auto next = std::find_if(pending_.begin(), pending_.end(),
                                   [&](const auto& capture) { return capture.fireDate && *capture.fireDate > now; });
    if (next == pending_.end()) {
        const bool wasShown = current_.has_value();
        current_.reset();
        if (wasShown && display_) display_(current_);
        return;
    }
    const Duration remaining = *next->fireDate - now;
    const std::string text = remainingText(remaining);
    current_ = Countdown{text, text + " remaining", badgeText(remaining), *next};
    if (display_) display_(current_);
    // The period of one second, aligned to the fire date so that no second is skipped when a tick comes late.
    const Duration untilNext =
        remaining - (std::chrono::ceil<std::chrono::seconds>(remaining) - std::chrono::seconds(1));
    tick_ = dependencies_.mainQueue.asyncAfter(untilNext, [this, alive = std::weak_ptr<int>(alive_)] {
        if (alive.expired()) return;
        tick_ = 0;
        render();
    });
}

void ActiveCountdownController::cancelTick() {
    if (tick_ != 0) dependencies_.mainQueue.cancel(std::exchange(tick_, 0));
}

std::string ActiveCountdownController::badgeText(Duration remaining) {
    const auto seconds = std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::seconds>(remaining).count());
    if (seconds < 60) return std::to_string(seconds);
    if (seconds <= 99 * 60) return std::to_string((seconds + 59) / 60) + "m";
    if (seconds < 100 * 3600) return std::to_string((seconds + 3599) / 3600) + "h";
    return std::to_string((seconds + 86399) / 86400) + "d";
}

std::string ActiveCountdownController::remainingText(Duration remaining) {
    const auto seconds = std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::seconds>(remaining).count());
    if (seconds >= 3600) return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}
} // namespace snipwren
