#include "context/server/RequestParams.h"

#include <cstdint>

#include <nlohmann/json.hpp>

namespace snipwren {
namespace {
const nlohmann::json* memberOf(const nlohmann::json& params, const char* key) {
    const auto found = params.find(key);
    return found == params.end() || found->is_null() ? nullptr : &*found;
}
} // namespace

bool readText(const nlohmann::json& params, const char* key, std::optional<std::string>& value) {
    const auto* const member = memberOf(params, key);
    if (!member) return true;
    if (!member->is_string()) return false;
    value = member->get<std::string>();
    return true;
}

bool readInteger(const nlohmann::json& params, const char* key, std::optional<std::int64_t>& value) {
    const auto* const member = memberOf(params, key);
    if (!member) return true;
    if (!member->is_number_integer()) return false;
    if (member->is_number_unsigned() && member->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX))
        return false;
    value = member->get<std::int64_t>();
    return true;
}

bool readTexts(const nlohmann::json& params, const char* key, std::optional<std::vector<std::string>>& value) {
    const auto* const member = memberOf(params, key);
    if (!member) return true;
    if (!member->is_array()) return false;
    std::vector<std::string> texts;
    for (const auto& one : *member) {
        if (!one.is_string()) return false;
        texts.push_back(one.get<std::string>());
    }
    value = std::move(texts);
    return true;
}

bool readTextOrJson(const nlohmann::json& params, const char* key, std::optional<std::string>& value) {
    const auto* const member = memberOf(params, key);
    if (!member) return true;
    if (member->is_string()) {
        value = member->get<std::string>();
    } else if (member->is_structured()) {
        value = member->dump();
    } else {
        return false;
    }
    return true;
}

std::optional<std::string> textOf(const nlohmann::json& params, const char* key) {
    std::optional<std::string> value;
    readText(params, key, value);
    return value;
}
} // namespace snipwren
