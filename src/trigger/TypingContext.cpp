#include "trigger/TypingContext.h"

#include "base/Text.h"

namespace snipwren {
void TypingContext::append(std::string_view characters) {
    const std::lock_guard lock(typingStateLock_);
    for (std::size_t i = 0; i < characters.size();) {
        const std::size_t start = i;
        if (!isWhitespaceOrNewline(nextScalar(characters, i))) {
            state_.currentWordPrefix.append(characters.substr(start, i - start));
            continue;
        }
        if (state_.currentWordPrefix.empty()) continue;
        state_.recentWords.push_back(std::move(state_.currentWordPrefix));
        state_.currentWordPrefix.clear();
        if (state_.recentWords.size() > recentWordsLimit) state_.recentWords.erase(state_.recentWords.begin());
    }
    state_.slidingBuffer.append(characters);
    if (std::string& buffer = state_.slidingBuffer; buffer.size() > slidingBufferLimit) {
        std::size_t cut = buffer.size() - slidingBufferLimit;
        while (cut < buffer.size() && (static_cast<unsigned char>(buffer[cut]) & 0xC0) == 0x80) ++cut;
        buffer.erase(0, cut);
    }
}

void TypingContext::removeLastCharacter() {
    const std::lock_guard lock(typingStateLock_);
    state_.slidingBuffer.resize(lastCharacterStart(state_.slidingBuffer));
    state_.currentWordPrefix.resize(lastCharacterStart(state_.currentWordPrefix));
}

void TypingContext::clear() {
    const std::lock_guard lock(typingStateLock_);
    state_ = Snapshot();
}

TypingContext::Snapshot TypingContext::snapshot() const {
    const std::lock_guard lock(typingStateLock_);
    return state_;
}
} // namespace snipwren
