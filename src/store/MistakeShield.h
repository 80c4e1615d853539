#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Regex.h"
#include "platform/AlertPresenter.h"

namespace snipwren {
class DatabaseManager;

/// Looks for mistakes in a text by the enabled rules of the rules database, whose patterns the user may change: one that
/// does not compile, or runs past its limit, is skipped. Thread safe.
class MistakeShield {
public:
    struct Hit {
        std::string id;
        std::string name;
        std::string category;
        std::string description;
        /// "warning" or "critical".
        std::string severity;
        friend bool operator==(const Hit&, const Hit&) = default;
    };

    explicit MistakeShield(DatabaseManager& database) : database_(database) {}

    /// The rules that the text breaks, in the order of the table. Reads the rules from the database each time.
    std::vector<Hit> review(std::string_view text);
    /// The first button applies the correction, the second ignores the hit.
    static Alert alert(const Hit& hit);

private:
    DatabaseManager& database_;
    std::mutex mutex_;
    /// By pattern; none for one that does not compile.
    std::map<std::string, std::optional<Regex>> compiled_;
};
} // namespace snipwren
