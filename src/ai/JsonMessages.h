#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "ai/AIProvider.h"

namespace snipwren {
/// The one user message that every provider's "messages" holds.
inline nlohmann::json messagesOf(const AIRequest& request) {
    return nlohmann::json::array({{{"role", "user"}, {"content", request.prompt}}});
}

/// Invalid UTF-8 in a prompt becomes U+FFFD.
inline std::string serialized(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// The value at a JSON pointer; null when there is none, or no JSON.
inline nlohmann::json valueAt(const nlohmann::json& json, const char* pointer) {
    const nlohmann::json::json_pointer path(pointer);
    // contains() throws for an array index that is not a number, which the fixed pointers never have.
    return !json.is_discarded() && json.contains(path) ? json.at(path) : nlohmann::json();
}
} // namespace snipwren
