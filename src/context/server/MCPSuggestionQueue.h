#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/SerialQueue.h"

namespace snipwren {
class NotificationCenter;

/// Something that a tool proposes to the user.
struct MCPSuggestion {
    /// A UUID.
    std::string id;
    std::string title;
    std::optional<std::string> body;
    std::string actionText;
    std::int64_t priority = 0;
    TimePoint expiresAt;
    std::optional<std::string> sourceLabel;
    friend bool operator==(const MCPSuggestion&, const MCPSuggestion&) = default;
};

/// The suggestions that tools pushed and that have not expired: highest priority first, among equals the oldest first.
/// Expired ones leave at the next look, before anyone sees them. Posts `changedNotification` when the content changed.
/// Its state lives on its queue; thread safe.
class MCPSuggestionQueue {
public:
    static constexpr const char* queueLabel = "com.snipwren.mcpSuggestionQueue";
    static constexpr const char* changedNotification = "MCPSuggestionsChanged";
    /// Beyond this the last in order are dropped: nobody reads so many, and a runaway tool must not fill the memory.
    static constexpr std::size_t capacity = 500;

    MCPSuggestionQueue(SerialQueue& queue, const Clock& clock, NotificationCenter& notifications)
        : queue_(queue),
          clock_(clock),
          notifications_(notifications) {}

    /// One with a known id replaces the earlier one.
    void push(std::vector<MCPSuggestion> suggestions);
    std::vector<MCPSuggestion> suggestions();
    void clear();
    void clear(const std::vector<std::string>& ids);

private:
    void dropExpired();

    SerialQueue& queue_;
    const Clock& clock_;
    NotificationCenter& notifications_;
    std::vector<MCPSuggestion> suggestions_;
};
} // namespace snipwren
