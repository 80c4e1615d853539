#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace snipwren {
struct RegexError {
    std::string description;
};
/// Why a search gave no answer: it ran past its limit of time or memory.
enum class RegexFault { tookTooLong };

/// One match; ranges are UTF-8 byte offsets into the searched text.
struct RegexMatch {
    struct Group {
        std::size_t start = 0;
        std::size_t length = 0;
    };
    /// Group 0 is the whole match; a group that took no part is none.
    std::vector<std::optional<Group>> groups;

    std::size_t start() const { return groups.front()->start; }
    std::size_t length() const { return groups.front()->length; }
    std::string_view text(std::string_view searched, std::size_t group = 0) const {
        return groups[group] ? searched.substr(groups[group]->start, groups[group]->length) : std::string_view();
    }
};

/// An ICU regular expression. Every search runs under a limit, so a hostile pattern or text costs bounded time; a search
/// that meets it answers tookTooLong. Thread safe: searches through one object take turns.
class Regex {
public:
    enum class Case { sensitive, insensitive };
    /// About a millisecond each.
    static constexpr int defaultLimit = 50;

    static Result<Regex, RegexError> compile(std::string_view pattern, Case letterCase = Case::sensitive,
                                             int limit = defaultLimit);
    Regex(Regex&&) noexcept;
    Regex& operator=(Regex&&) noexcept;
    ~Regex();

    const std::string& pattern() const;
    Result<bool, RegexFault> contains(std::string_view text) const;
    /// For callers that try many patterns on one text: convert it once.
    Result<bool, RegexFault> contains(std::u16string_view text) const;
    Result<std::optional<RegexMatch>, RegexFault> firstMatch(std::string_view text) const;
    Result<std::vector<RegexMatch>, RegexFault> allMatches(std::string_view text) const;
    /// Ranges are UTF-16 code units here.
    Result<std::vector<RegexMatch>, RegexFault> allMatches(std::u16string_view text) const;
    /// Every match replaced by the template ("$1" names a group).
    Result<std::string, RegexFault> replacingAll(std::string_view text, std::string_view replacement) const;

private:
    struct State;
    explicit Regex(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};
} // namespace snipwren
