#include "base/NotificationCenter.h"

#include <vector>

namespace snipwren {
std::string text(const UserInfo& info, std::string_view key) {
    const auto found = info.find(key);
    const auto* value = found == info.end() ? nullptr : std::get_if<std::string>(&found->second);
    return value ? *value : std::string();
}

bool flag(const UserInfo& info, std::string_view key) {
    const auto found = info.find(key);
    const auto* value = found == info.end() ? nullptr : std::get_if<bool>(&found->second);
    return value && *value;
}

NotificationCenter::Subscription NotificationCenter::observe(std::string name, Observer observer) {
    auto shared = std::make_shared<Observer>(std::move(observer));
    const std::lock_guard lock(mutex_);
    observers_.emplace(std::move(name), shared);
    return shared;
}

void NotificationCenter::post(std::string name, UserInfo info) {
    mainQueue_.async([this, name = std::move(name), info = std::move(info)] { postNow(name, info); });
}

void NotificationCenter::postNow(std::string_view name, const UserInfo& info) {
    std::vector<std::weak_ptr<Observer>> called;
    {
        const std::lock_guard lock(mutex_);
        const auto [first, last] = observers_.equal_range(name);
        for (auto it = first; it != last;) {
            if (it->second.expired()) {
                it = observers_.erase(it);
            } else {
                called.push_back((it++)->second);
            }
        }
    }
    // Locked one by one: an observer may end another's subscription.
    for (const auto& weak : called)
        if (const auto observer = weak.lock()) (*observer)(info);
}
} // namespace snipwren
