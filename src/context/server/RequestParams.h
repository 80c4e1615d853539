#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace snipwren {
/// Readers of one member of a params object. Each answers false when the member is there but of another kind; null
/// counts as missing, which leaves `value` alone.
bool readText(const nlohmann::json& params, const char* key, std::optional<std::string>& value);
bool readInteger(const nlohmann::json& params, const char* key, std::optional<std::int64_t>& value);
bool readTexts(const nlohmann::json& params, const char* key, std::optional<std::vector<std::string>>& value);
/// A list or an object is kept as its JSON text.
bool readTextOrJson(const nlohmann::json& params, const char* key, std::optional<std::string>& value);
/// The text under the key; none when missing or of another kind.
std::optional<std::string> textOf(const nlohmann::json& params, const char* key);
} // namespace snipwren
