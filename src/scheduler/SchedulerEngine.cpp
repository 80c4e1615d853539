#include "scheduler/SchedulerEngine.h"

#include <algorithm>

namespace snipwren {
namespace {
/// Differences below this are the rounding of two clocks that are read one after the other.
constexpr Duration clockNoise = std::chrono::seconds(1);
/// A request older than this when it arrives was not delayed by the bus; its interval then counts from now.
constexpr Duration longestTransit = std::chrono::seconds(20);

std::optional<std::string> problemOf(const ScheduledItem& item) {
    if (item.id.empty() || item.id.size() > SchedulerEngine::maxIdentifier)
        return "The request's identifier is empty or too long.";
    for (const std::string* text : {&item.category, &item.title, &item.subtitle, &item.body})
        if (text->size() > SchedulerEngine::maxText) return "The notification's text is too long.";
    if (item.actions.size() > 8 || item.userInfo.size() > 64) return "The request has too many parts.";
    if (item.kind == ScheduledItem::Kind::interval
        && (item.interval < Duration::zero() || item.interval > std::chrono::hours(24 * 366 * 100)))
        return "The interval is out of range.";
    // Far enough for any calendar, and no arithmetic on it can overflow.
    if (item.fireAt < TimePoint{} || item.fireAt > TimePoint(std::chrono::hours(24 * 366 * 8000)))
        return "The fire date is out of range.";
    return std::nullopt;
}
} // namespace

Result<void, SchedulerEngine::Error> SchedulerEngine::load() {
    bootId_ = dependencies_.clocks.bootId();
    auto all = dependencies_.store.all();
    if (!all) return unexpected(Error{all.error().description});
    for (StoredItem& stored : *all) {
        std::string id = stored.item.id;
        items_[std::move(id)] = std::move(stored);
    }
    return {};
}

bool SchedulerEngine::runsOnBootClock(const StoredItem& stored) const {
    return stored.item.kind == ScheduledItem::Kind::interval && !bootId_.empty() && stored.bootId == bootId_;
}

TimePoint SchedulerEngine::fireDate(const StoredItem& stored) const {
    if (!runsOnBootClock(stored)) return stored.item.fireAt;
    return dependencies_.clocks.wall() + (stored.bootDeadline - dependencies_.clocks.sinceBoot());
}

Result<void, SchedulerEngine::Error> SchedulerEngine::add(ScheduledItem item) {
    if (auto problem = problemOf(item)) return unexpected(Error{std::move(*problem)});
    if (items_.size() >= maxItems && !items_.contains(item.id))
        return unexpected(Error{"There are too many scheduled notifications. Cancel some and try again."});
    StoredItem stored;
    const TimePoint now = dependencies_.clocks.wall();
    if (item.kind == ScheduledItem::Kind::interval) {
        // The client says when it fires, so that the time the request took to arrive is not added.
        Duration left = item.fireAt - now;
        if (left > item.interval || left < item.interval - longestTransit) left = item.interval;
        stored.bootDeadline = dependencies_.clocks.sinceBoot() + left;
        stored.bootId = bootId_;
        item.fireAt = now + left;
    } else if (item.kind == ScheduledItem::Kind::atOnce) {
        item.fireAt = now;
    }
    stored.item = std::move(item);
    if (const auto put = dependencies_.store.put(stored); !put) return unexpected(Error{put.error().description});
    undeleted_.erase(stored.item.id);
    const bool waits = stored.item.kind != ScheduledItem::Kind::atOnce;
    items_[stored.item.id] = std::move(stored);
    if (waits) dependencies_.listener.pendingDidChange();
    return {};
}

Result<bool, SchedulerEngine::Error> SchedulerEngine::remove(const std::string& id) {
    const auto found = items_.find(id);
    if (found == items_.end()) return false;
    if (const auto removed = dependencies_.store.remove(id); !removed)
        return unexpected(Error{removed.error().description});
    items_.erase(found);
    dependencies_.listener.pendingDidChange();
    return true;
}

std::vector<ScheduledItem> SchedulerEngine::pending() const {
    std::vector<ScheduledItem> pending;
    pending.reserve(items_.size());
    for (const auto& [id, stored] : items_) {
        if (stored.waitsForService || stored.item.kind == ScheduledItem::Kind::atOnce) continue;
        pending.push_back(stored.item);
        pending.back().fireAt = fireDate(stored);
    }
    return pending;
}

void SchedulerEngine::sweep() {
    for (auto it = undeleted_.begin(); it != undeleted_.end();)
        it = dependencies_.store.remove(*it) ? undeleted_.erase(it) : std::next(it);
    const TimePoint now = dependencies_.clocks.wall();
    std::vector<std::pair<TimePoint, std::string>> due;
    bool moved = false;
    for (auto& [id, stored] : items_) {
        if (stored.waitsForService) continue;
        const TimePoint fires = fireDate(stored);
        if (fires <= now) {
            due.emplace_back(fires, id);
        } else if (std::chrono::abs(fires - stored.item.fireAt) > clockNoise) {
            // The wall clock was set: the elapsed time keeps its length, and another run of the machine needs the new
            // moment. When it cannot be written the old one stays, which is the best there is.
            stored.item.fireAt = fires;
            if (const auto put = dependencies_.store.put(stored); !put)
                dependencies_.log.line("❌ SchedulerEngine: Could not keep a moved timer: " + put.error().description);
            moved = true;
        }
    }
    std::sort(due.begin(), due.end());
    for (const auto& [fires, id] : due) fire(id);
    if (moved || !due.empty()) dependencies_.listener.pendingDidChange();
}

void SchedulerEngine::fire(const std::string& id) {
    const auto found = items_.find(id);
    if (found == items_.end()) return;
    StoredItem& stored = found->second;
    const Duration lateBy = dependencies_.clocks.wall() - fireDate(stored);
    const bool late = lateBy >= lateFrom;
    dependencies_.log.line("⏰ SchedulerEngine: Delivering " + id
                           + (late ? " late by " + std::to_string(lateBy / std::chrono::seconds(1)) + "s" : ""));
    // First shown, then forgotten: a crash between the two shows it twice, the other order would lose it.
    const bool shown = dependencies_.outlet.show(stored.item, late ? lateBy : Duration::zero());
    const ScheduledItem item = stored.item;
    if (shown) {
        forget(id);
    } else {
        stored.item.fireAt = dependencies_.clocks.wall() - lateBy;
        stored.waitsForService = true;
        if (const auto put = dependencies_.store.put(stored); !put)
            dependencies_.log.line("❌ SchedulerEngine: Could not keep an undelivered notification: "
                                   + put.error().description);
    }
    dependencies_.listener.didFire(item, late);
}

void SchedulerEngine::forget(const std::string& id) {
    items_.erase(id);
    if (const auto removed = dependencies_.store.remove(id); !removed) {
        undeleted_.insert(id);
        dependencies_.log.line("❌ SchedulerEngine: Could not remove a delivered notification: "
                               + removed.error().description);
    }
}

void SchedulerEngine::serviceDidAppear() {
    const TimePoint now = dependencies_.clocks.wall();
    std::vector<std::string> waiting;
    for (const auto& [id, stored] : items_)
        if (stored.waitsForService) waiting.push_back(id);
    for (const std::string& id : waiting) {
        const ScheduledItem& item = items_.at(id).item;
        const Duration lateBy = now - item.fireAt;
        if (lateBy > keepsUnshown) {
            forget(id);
        } else if (dependencies_.outlet.show(item, lateBy >= lateFrom ? lateBy : Duration::zero())) {
            forget(id);
        } else {
            return; // It went away again.
        }
    }
}

SchedulerEngine::Deadlines SchedulerEngine::deadlines() const {
    Deadlines next;
    const auto earlier = [](auto& held, auto moment) { held = held ? std::min(*held, moment) : moment; };
    for (const auto& [id, stored] : items_) {
        if (stored.waitsForService) continue;
        if (runsOnBootClock(stored)) {
            earlier(next.sinceBoot, stored.bootDeadline);
        } else {
            earlier(next.wall, stored.item.fireAt);
        }
    }
    return next;
}
} // namespace snipwren
