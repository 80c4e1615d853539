#include "parsing/scheduling/TimerCompletionFallback.h"

#include <algorithm>

#include "parsing/scheduling/NotificationScheduler.h"

namespace snipwren {
namespace {
constexpr std::size_t rememberedShown = 256;
} // namespace

TimerCompletionFallback::TimerCompletionFallback(const Dependencies& dependencies)
    : dependencies_(dependencies),
      state_(std::make_shared<State>()) {}

TimerCompletionFallback::~TimerCompletionFallback() {
    const std::lock_guard lock(state_->mutex);
    for (const auto& [identifier, entry] : state_->entries) dependencies_.mainQueue.cancel(entry.timer);
    state_->entries.clear();
}

void TimerCompletionFallback::schedule(const std::string& identifier, TimePoint fireDate, const std::string& title,
                                       const std::string& body) {
    const Duration delay = std::max(Duration::zero(), fireDate - dependencies_.clock.now());
    const std::lock_guard lock(state_->mutex);
    if (const auto held = state_->entries.find(identifier); held != state_->entries.end())
        dependencies_.mainQueue.cancel(held->second.timer);
    std::erase(state_->shown, identifier);
    const std::uint64_t generation = ++state_->lastGeneration;
    const auto timer =
        dependencies_.mainQueue.asyncAfter(delay, [this, identifier, generation, alive = std::weak_ptr<State>(state_)] {
            if (!alive.expired()) fire(identifier, generation);
        });
    state_->entries[identifier] = {timer, generation, fireDate, title, body};
}

void TimerCompletionFallback::cancel(const std::string& identifier) {
    const std::lock_guard lock(state_->mutex);
    const auto held = state_->entries.find(identifier);
    if (held == state_->entries.end()) return;
    dependencies_.mainQueue.cancel(held->second.timer);
    state_->entries.erase(held);
}

void TimerCompletionFallback::fire(const std::string& identifier, std::uint64_t generation) {
    Entry entry;
    {
        const std::lock_guard lock(state_->mutex);
        const auto held = state_->entries.find(identifier);
        // A task that was replaced or cancelled while it stood ready in the queue finds another generation or nothing.
        if (held == state_->entries.end() || held->second.generation != generation) return;
        entry = std::move(held->second);
        state_->entries.erase(held);
        state_->shown.push_back(identifier);
        if (state_->shown.size() > rememberedShown) state_->shown.pop_front();
    }
    show(entry.title, entry.body);
    dependencies_.notifications.post(scheduledCapturesChanged);
}

void TimerCompletionFallback::show(const std::string& title, const std::string& body) {
    dependencies_.panel.show({title, body, title == NotificationScheduler::defaultAlarmTitle ? "alarm" : "timer", -1});
}

void TimerCompletionFallback::systemDelivered(const std::string& identifier, const std::string& title,
                                              const std::string& body) {
    {
        const std::lock_guard lock(state_->mutex);
        if (std::find(state_->shown.begin(), state_->shown.end(), identifier) != state_->shown.end()) return;
        if (const auto held = state_->entries.find(identifier); held != state_->entries.end()) {
            dependencies_.mainQueue.cancel(held->second.timer);
            state_->entries.erase(held);
        }
        state_->shown.push_back(identifier);
        if (state_->shown.size() > rememberedShown) state_->shown.pop_front();
    }
    show(title, body);
    dependencies_.notifications.post(scheduledCapturesChanged);
}

void TimerCompletionFallback::adopt(const std::vector<PendingScheduledCapture>& pending) {
    const TimePoint now = dependencies_.clock.now();
    std::vector<std::string> gone;
    std::vector<const PendingScheduledCapture*> taken;
    {
        const std::lock_guard lock(state_->mutex);
        const auto isPending = [&](const std::string& identifier) {
            return std::any_of(pending.begin(), pending.end(), [&](const auto& item) { return item.id == identifier; });
        };
        // One that is due is about to be shown; only what waits can have been cancelled.
        for (const auto& [identifier, entry] : state_->entries)
            if (entry.fireDate > now && !isPending(identifier)) gone.push_back(identifier);
        for (const PendingScheduledCapture& item : pending) {
            if (!item.fireDate || *item.fireDate <= now) continue;
            const auto held = state_->entries.find(item.id);
            // The system moves a fire date when the wall clock is stepped; small differences are rounding.
            const bool moved = held != state_->entries.end()
                               && std::chrono::abs(held->second.fireDate - *item.fireDate) > std::chrono::seconds(1);
            if (held == state_->entries.end() || moved) taken.push_back(&item);
        }
    }
    for (const std::string& identifier : gone) cancel(identifier);
    for (const PendingScheduledCapture* item : taken)
        schedule(item->id, *item->fireDate, item->title, NotificationScheduler::body(item->kind, item->title));
}
} // namespace snipwren
