#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>

#include "base/SerialQueue.h"

namespace snipwren {
/// The payload of a notification: text keys with texts or truth values.
using UserInfo = std::map<std::string, std::variant<std::string, bool>, std::less<>>;
/// The text under the key; empty when absent or not a text.
std::string text(const UserInfo& info, std::string_view key);
/// The truth value under the key; false when absent or not one.
bool flag(const UserInfo& info, std::string_view key);

/// App-wide events by name, delivered to their observers on the main queue in the order of posting. Thread safe.
class NotificationCenter {
public:
    using Observer = std::function<void(const UserInfo&)>;
    /// Ends the observation when destroyed. On the main queue no call comes after that.
    using Subscription = std::shared_ptr<void>;

    explicit NotificationCenter(SerialQueue& mainQueue) : mainQueue_(mainQueue) {}

    [[nodiscard]] Subscription observe(std::string name, Observer observer);
    void post(std::string name, UserInfo info = {});
    /// Delivers at once, on the calling thread, which must be the main queue's.
    void postNow(std::string_view name, const UserInfo& info = {});

private:
    SerialQueue& mainQueue_;
    std::mutex mutex_;
    std::multimap<std::string, std::weak_ptr<Observer>, std::less<>> observers_;
};
} // namespace snipwren
