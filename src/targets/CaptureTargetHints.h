#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace snipwren {
/// The words that the overlay and the command line show for each command word, which stand with the targets. Exact,
/// case-sensitive look-up, for those who have no registry at hand.
class CaptureTargetHints {
public:
    struct Banner {
        std::string_view title;
        std::string_view subtitle;
    };

    CaptureTargetHints() = delete;
    /// In registry order.
    static std::vector<std::string_view> commandWords();
    static std::optional<Banner> banner(std::string_view commandName);
    /// `isSlackFiltering`: the picker's filter is being typed; targets without one ignore it.
    static std::string_view placeholder(std::string_view commandName, bool isSlackFiltering = false);
};
} // namespace snipwren
