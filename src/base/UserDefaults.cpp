#include "base/UserDefaults.h"

#include <algorithm>
#include <cerrno>

#include <nlohmann/json.hpp>

#include "base/FolderLock.h"

namespace snipwren {
using Json = nlohmann::json;

struct UserDefaults::Values {
    Json object = Json::object();

    const Json* find(std::string_view key) const {
        const auto found = object.find(std::string(key));
        return found == object.end() ? nullptr : &*found;
    }
};

namespace {
bool isSettingValue(const Json& value) {
    if (value.is_array()) return std::all_of(value.begin(), value.end(), [](const Json& e) { return e.is_string(); });
    return value.is_string() || value.is_boolean() || value.is_number();
}
} // namespace

UserDefaults::UserDefaults(FileIO& files, std::string path)
    : files_(files),
      path_(std::move(path)),
      values_(std::make_unique<Values>()) {}
UserDefaults::~UserDefaults() = default;

std::optional<std::string> UserDefaults::load() {
    const std::lock_guard lock(mutex_);
    return loadLocked();
}

std::optional<std::string> UserDefaults::loadLocked() {
    const auto content = files_.read(path_);
    if (!content) {
        if (content.error().code == ENOENT) {
            values_->object = Json::object();
            return std::nullopt;
        }
        return content.error().description + ". The default settings apply.";
    }
    Json parsed = Json::parse(*content, nullptr, false);
    if (parsed.is_object()) {
        values_->object = std::move(parsed);
        return std::nullopt;
    }
    values_->object = Json::object();
    std::string aside = path_ + ".damaged";
    for (int number = 2; files_.exists(aside); ++number) aside = path_ + ".damaged-" + std::to_string(number);
    if (const auto moved = files_.rename(path_, aside); !moved)
        return "The settings file is damaged. " + moved.error().description + ". The default settings apply.";
    return "The settings file was damaged. It was kept as \"" + aside + "\" and the default settings apply.";
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    if (!value || !value->is_boolean()) return std::nullopt;
    return value->get<bool>();
}

std::optional<std::int64_t> UserDefaults::integer(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    // An unsigned value that does not fit would wrap around.
    if (!value || !value->is_number_integer()
        || (value->is_number_unsigned() && value->get<std::uint64_t>() > INT64_MAX))
        return std::nullopt;
    return value->get<std::int64_t>();
}

std::optional<double> UserDefaults::number(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    if (!value || !value->is_number()) return std::nullopt;
    return value->get<double>();
}

std::optional<std::vector<std::string>> UserDefaults::strings(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    if (!value || !value->is_array() || !isSettingValue(*value)) return std::nullopt;
    return value->get<std::vector<std::string>>();
}

std::vector<std::string> UserDefaults::keys() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> keys;
    for (const auto& item : values_->object.items()) keys.push_back(item.key());
    return keys;
}

std::optional<std::string> UserDefaults::json(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const Json* value = values_->find(key);
    if (!value) return std::nullopt;
    return value->dump(-1, ' ', false, Json::error_handler_t::replace);
}

template <class Change>
UserDefaults::Written UserDefaults::change(Change apply) {
    const std::lock_guard lock(mutex_);
    if (auto made = files_.createFolders(parentPath(path_), privateFolderMode); !made) return made;
    // Another program's change since our last look must survive ours.
    const FolderLock folderLock(parentPath(path_));
    if (const auto problem = loadLocked(); problem && files_.exists(path_)) return unexpected(FileError{EIO, *problem});
    const Json before = values_->object;
    apply(values_->object);
    auto written = files_.writeAtomic(path_, values_->object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n",
                                      privateFileMode);
    if (!written) values_->object = before;
    return written;
}

UserDefaults::Written UserDefaults::set(std::string_view key, std::string_view value) {
    return change([&](Json& object) { object[std::string(key)] = std::string(value); });
}

UserDefaults::Written UserDefaults::set(std::string_view key, bool value) {
    return change([&](Json& object) { object[std::string(key)] = value; });
}

UserDefaults::Written UserDefaults::set(std::string_view key, std::int64_t value) {
    return change([&](Json& object) { object[std::string(key)] = value; });
}

UserDefaults::Written UserDefaults::set(std::string_view key, double value) {
    return change([&](Json& object) { object[std::string(key)] = value; });
}

UserDefaults::Written UserDefaults::set(std::string_view key, const std::vector<std::string>& value) {
    return change([&](Json& object) { object[std::string(key)] = value; });
}

UserDefaults::Written UserDefaults::setParsed(std::string_view key, std::string_view value) {
    Json parsed = Json::parse(value, nullptr, false);
    if (parsed.is_discarded() || !isSettingValue(parsed)) parsed = std::string(value);
    return change([&](Json& object) { object[std::string(key)] = std::move(parsed); });
}

UserDefaults::Written UserDefaults::remove(std::string_view key) {
    return change([&](Json& object) { object.erase(std::string(key)); });
}
} // namespace snipwren
