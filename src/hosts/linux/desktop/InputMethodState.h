#pragma once

#include <string>

namespace snipwren {
/// Whether an input method is at work that makes other text of the keys than they show (pinyin, kana, hangul): then what was
/// typed is not what stands in a field. A method that only is a keyboard layout does not count. Asks the two frameworks that
/// desktops use; blocks for a bounded time, and no framework means no method.
class InputMethodState {
public:
    /// Microseconds for one question: the asker is about to remove a trigger.
    static constexpr unsigned long long patience = 20'000;

    /// `ibusAddressFile`: where that framework says how it is reached; empty: where it does in this session.
    explicit InputMethodState(std::string ibusAddressFile = {});
    bool mayEdit() const;

private:
    bool fcitxMayEdit() const;
    bool ibusMayEdit() const;

    const std::string ibusAddressFile_;
};
} // namespace snipwren
