#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace snipwren {
/// What was typed lately, for completion suggestions: the current word, the words before it, the last characters. It is
/// only fed while somebody listens to it, and emptied wherever typing must not be looked at. Thread safe (the
/// `typingStateLock`).
class TypingContext {
public:
    struct Snapshot {
        std::string slidingBuffer;
        std::string currentWordPrefix;
        std::vector<std::string> recentWords;
    };
    static constexpr std::size_t slidingBufferLimit = 200; // Bytes.
    static constexpr std::size_t recentWordsLimit = 20;

    void append(std::string_view characters);
    void removeLastCharacter();
    void clear();
    Snapshot snapshot() const;

private:
    mutable std::mutex typingStateLock_;
    Snapshot state_;
};
} // namespace snipwren
