#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// Follows what is typed just closely enough to say which keys may be the next of a trigger, so that only those few are
/// held back: a second slash after a first one, Space and Return while a command word may be complete. One thread.
class TriggerArming {
public:
    /// Lower-case command words; none at all stands for any word.
    explicit TriggerArming(std::vector<std::string> words);

    void typed(std::string_view characters);
    void deleted();
    void replace(std::string_view text);
    void clear() { text_.clear(); }

    bool wantsSlash() const;
    bool wantsTerminators() const;

private:
    static constexpr std::size_t limit = 64;
    std::vector<std::string> words_;
    /// The end of what was typed, letters in lower case; other than ASCII as it came.
    std::string text_;
};
} // namespace snipwren
