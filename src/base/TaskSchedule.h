#pragma once

#include <deque>
#include <map>
#include <optional>
#include <unordered_map>

#include "base/SerialQueue.h"

namespace snipwren {
/// The waiting tasks of one queue: ready ones in order, delayed ones by their moment. Not thread safe; each queue guards
/// its own with its lock.
class TaskSchedule {
public:
    void add(SerialQueue::Task task) { ready_.push_back(std::move(task)); }

    SerialQueue::TimerId addAt(SteadyPoint moment, SerialQueue::Task task) {
        const SerialQueue::TimerId id = ++lastId_;
        byId_.emplace(id, delayed_.emplace(moment, Delayed{id, std::move(task)}));
        return id;
    }

    bool cancel(SerialQueue::TimerId id) {
        const auto found = byId_.find(id);
        if (found == byId_.end()) return false;
        delayed_.erase(found->second);
        byId_.erase(found);
        return true;
    }

    /// The next task to run at `now`; a delayed task whose moment has come joins the end of the ready ones.
    std::optional<SerialQueue::Task> take(SteadyPoint now) {
        while (!delayed_.empty() && delayed_.begin()->first <= now) {
            auto first = delayed_.begin();
            byId_.erase(first->second.id);
            ready_.push_back(std::move(first->second.task));
            delayed_.erase(first);
        }
        if (ready_.empty()) return std::nullopt;
        SerialQueue::Task task = std::move(ready_.front());
        ready_.pop_front();
        return task;
    }

    std::optional<SteadyPoint> nextMoment() const {
        if (delayed_.empty()) return std::nullopt;
        return delayed_.begin()->first;
    }
    bool hasReady() const { return !ready_.empty(); }

private:
    struct Delayed {
        SerialQueue::TimerId id;
        SerialQueue::Task task;
    };
    std::deque<SerialQueue::Task> ready_;
    std::multimap<SteadyPoint, Delayed> delayed_;
    std::unordered_map<SerialQueue::TimerId, std::multimap<SteadyPoint, Delayed>::iterator> byId_;
    SerialQueue::TimerId lastId_ = 0;
};
} // namespace snipwren
