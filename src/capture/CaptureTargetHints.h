#pragma once

#include <optional>
#include <string_view>

namespace snipwren {
/// The texts that the overlay shows for each command word. Exact, case-sensitive look-up.
class CaptureTargetHints {
public:
    struct Banner {
        std::string_view title;
        std::string_view subtitle;
    };
    CaptureTargetHints() = delete;
    static std::optional<Banner> banner(std::string_view commandName);
    /// `isSlackFiltering`: the slack picker's filter is being typed; other words ignore it.
    static std::string_view placeholder(std::string_view commandName, bool isSlackFiltering = false);
};
} // namespace snipwren
