#include "targets/SavedItem.h"

#include <nlohmann/json.hpp>

namespace snipwren {
using Json = nlohmann::json;

std::string SavedItem::encoded() const {
    return Json{{"list", listId}, {"uid", uid}, {"alarm", alarm}}.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<SavedItem> SavedItem::decoded(const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object()) return std::nullopt;
    SavedItem item;
    for (const auto& [key, value] : {std::pair{"list", &item.listId}, {"uid", &item.uid}, {"alarm", &item.alarm}}) {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_string()) return std::nullopt;
        *value = found->get<std::string>();
    }
    return item;
}

Result<SavedItem, CaptureError> SavedItem::remove(EventStore& store, EventEntity entity, const std::string& undo,
                                                  std::stop_token stop) {
    auto item = decoded(undo);
    if (!item) return unexpected(failure(EventStoreError::missing(entity)));
    const auto removed = store.remove(entity, item->listId, item->uid, std::move(stop));
    if (!removed) return unexpected(failure(removed.error()));
    return *std::move(item);
}
} // namespace snipwren
