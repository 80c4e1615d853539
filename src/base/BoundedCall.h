#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

#include "base/SerialQueue.h"

namespace snipwren {
/// Runs the function on the queue and waits for its value, but no longer than until `stop` is requested: a function that
/// has not begun by then never runs, and the answer is none. For work off the main queue that needs a moment on it while
/// whoever runs the main queue may be waiting for that very work to end.
template <class F>
auto callUnlessStopped(SerialQueue& queue, const std::stop_token& stop, F function)
    -> std::optional<decltype(function())> {
    if (queue.isCurrent()) return function();
    struct State {
        std::mutex mutex;
        std::condition_variable_any changed;
        bool begun = false;
        bool abandoned = false;
        std::optional<decltype(function())> value;
    };
    const auto state = std::make_shared<State>();
    queue.async([state, function = std::move(function)]() mutable {
        {
            const std::lock_guard lock(state->mutex);
            if (state->abandoned) return;
            state->begun = true;
        }
        auto value = function();
        const std::lock_guard lock(state->mutex);
        state->value.emplace(std::move(value));
        state->changed.notify_all();
    });
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, stop, [&] { return state->value.has_value(); });
    if (!state->begun) {
        state->abandoned = true;
        return std::nullopt;
    }
    state->changed.wait(lock, [&] { return state->value.has_value(); });
    return std::move(state->value);
}
} // namespace snipwren
