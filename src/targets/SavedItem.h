#pragma once

#include <optional>
#include <string>

#include "capture/CaptureTarget.h"
#include "platform/EventStore.h"

namespace snipwren {
/// Where a reminder or an event was saved: what undoing the capture needs.
struct SavedItem {
    std::string listId;
    std::string uid;
    /// The notification that rings for it; empty for none of ours.
    std::string alarm;

    std::string encoded() const;
    /// None for a text that encoded() did not make.
    static std::optional<SavedItem> decoded(const std::string& text);
    /// The item that `undo` names, removed from the store.
    static Result<SavedItem, CaptureError> remove(EventStore& store, EventEntity entity, const std::string& undo,
                                                  std::stop_token stop);
    static CaptureError failure(const EventStoreError& error) { return {"EventStore", 1, error.description}; }
};
} // namespace snipwren
