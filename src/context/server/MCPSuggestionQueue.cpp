#include "context/server/MCPSuggestionQueue.h"

#include <algorithm>

#include "base/NotificationCenter.h"

namespace snipwren {
void MCPSuggestionQueue::push(std::vector<MCPSuggestion> suggestions) {
    queue_.sync([&] {
        dropExpired();
        for (auto& suggestion : suggestions) {
            std::erase_if(suggestions_, [&](const MCPSuggestion& known) { return known.id == suggestion.id; });
            suggestions_.push_back(std::move(suggestion));
        }
        std::stable_sort(suggestions_.begin(), suggestions_.end(),
                         [](const MCPSuggestion& a, const MCPSuggestion& b) { return a.priority > b.priority; });
        if (suggestions_.size() > capacity) suggestions_.resize(capacity);
    });
    notifications_.post(changedNotification);
}

std::vector<MCPSuggestion> MCPSuggestionQueue::suggestions() {
    return queue_.call([&] {
        dropExpired();
        return suggestions_;
    });
}

void MCPSuggestionQueue::clear() {
    queue_.sync([&] { suggestions_.clear(); });
    notifications_.post(changedNotification);
}

void MCPSuggestionQueue::clear(const std::vector<std::string>& ids) {
    queue_.sync([&] {
        std::erase_if(suggestions_, [&](const MCPSuggestion& known) {
            return std::find(ids.begin(), ids.end(), known.id) != ids.end();
        });
    });
    notifications_.post(changedNotification);
}

void MCPSuggestionQueue::dropExpired() {
    const TimePoint now = clock_.now();
    std::erase_if(suggestions_, [&](const MCPSuggestion& known) { return known.expiresAt <= now; });
}
} // namespace snipwren
