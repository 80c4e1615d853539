#include "trigger/PassiveTriggerBuffer.h"

#include <algorithm>

#include "base/Text.h"
#include "trigger/TriggerBoundary.h"

namespace snipwren {
namespace {
/// Whether `text` ends with "//" and the word, letter case aside. Command words are ASCII.
bool endsWithTrigger(std::string_view text, std::string_view word) {
    if (text.size() < word.size() + 2) return false;
    const std::string_view tail = text.substr(text.size() - word.size() - 2);
    if (tail[0] != '/' || tail[1] != '/') return false;
    return std::equal(word.begin(), word.end(), tail.begin() + 2, [](char want, char typed) {
        return want == (typed >= 'A' && typed <= 'Z' ? static_cast<char>(typed - 'A' + 'a') : typed);
    });
}

std::size_t lastScalarStart(std::string_view text) {
    std::size_t start = text.size();
    while (start > 0 && (static_cast<unsigned char>(text[--start]) & 0xC0) == 0x80) continue;
    return start;
}
} // namespace

PassiveTriggerBuffer::PassiveTriggerBuffer(const Clock& clock) : clock_(clock) {
    // Four bytes for each kept character and as many for one event's: appending never allocates again.
    normalBuffer_.reserve(8 * passiveBufferLimit);
}

void PassiveTriggerBuffer::append(std::string_view characters) {
    const std::lock_guard lock(bufferLock_);
    if (characters.size() > 4 * passiveBufferLimit)
        characters.remove_prefix(characters.size() - 4 * passiveBufferLimit);
    normalBuffer_.append(characters);
    length_ += codePointCount(characters);
    std::size_t dropped = 0;
    for (; length_ > passiveBufferLimit && dropped < normalBuffer_.size(); --length_)
        nextScalar(normalBuffer_, dropped);
    normalBuffer_.erase(0, dropped);
}

void PassiveTriggerBuffer::removeLastCharacter() {
    const std::lock_guard lock(bufferLock_);
    normalBuffer_.resize(lastCharacterStart(normalBuffer_));
    length_ = codePointCount(normalBuffer_);
}

void PassiveTriggerBuffer::clear() {
    const std::lock_guard lock(bufferLock_);
    normalBuffer_.clear();
    length_ = 0;
}

std::string PassiveTriggerBuffer::text() const {
    const std::lock_guard lock(bufferLock_);
    return normalBuffer_;
}

std::optional<PassiveTriggerBuffer::Match>
PassiveTriggerBuffer::takeMatch(const std::vector<std::string>& commandWords) {
    const std::lock_guard lock(bufferLock_);
    std::string_view typed = normalBuffer_;
    if (!typed.empty() && (typed.back() == ' ' || typed.back() == '\n')) typed.remove_suffix(1);
    for (std::size_t target = 0; target < commandWords.size(); ++target) {
        if (!endsWithTrigger(typed, commandWords[target])) continue;
        const std::size_t start = typed.size() - commandWords[target].size() - 2;
        std::optional<char32_t> prev;
        if (start > 0) {
            std::size_t offset = lastScalarStart(typed.substr(0, start));
            prev = nextScalar(typed, offset);
        }
        if (TriggerBoundary::isValid(prev)) return Match{target, std::string(typed.substr(start))};
        normalBuffer_.erase(start, typed.size() - start);
        length_ = codePointCount(normalBuffer_);
        return std::nullopt;
    }
    return std::nullopt;
}

void PassiveTriggerBuffer::focusChanged(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    if (lastTypingFingerprint_ == field) return;
    if (lastTypingFingerprint_) suspendLocked(*lastTypingFingerprint_);
    normalBuffer_.clear();
    length_ = 0;
    restoreLocked(field);
    lastTypingFingerprint_ = field;
}

void PassiveTriggerBuffer::suspend(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    suspendLocked(field);
}

void PassiveTriggerBuffer::suspendLocked(const FocusFingerprint& field) {
    std::erase_if(retainedPassives_, [&](const auto& retained) { return retained.fingerprint == field; });
    if (!normalBuffer_.empty()) retainedPassives_.push_back({field, normalBuffer_, clock_.steadyNow()});
    while (retainedPassives_.size() > passiveBufferRetentionMaxSlots) retainedPassives_.pop_front();
    normalBuffer_.clear();
    length_ = 0;
}

bool PassiveTriggerBuffer::restoreIfMatching(const FocusFingerprint& field) {
    if (field.isTransient()) return false;
    const std::lock_guard lock(bufferLock_);
    return restoreLocked(field);
}

bool PassiveTriggerBuffer::restoreLocked(const FocusFingerprint& field) {
    const SteadyPoint now = clock_.steadyNow();
    std::erase_if(retainedPassives_,
                  [&](const auto& retained) { return now - retained.retainedAt > passiveBufferRetentionMaxAge; });
    const auto found = std::find_if(retainedPassives_.begin(), retainedPassives_.end(),
                                    [&](const auto& retained) { return retained.fingerprint == field; });
    if (found == retainedPassives_.end()) return false;
    normalBuffer_.assign(found->text); // Assigned, not moved: the reserved storage stays.
    length_ = codePointCount(normalBuffer_);
    retainedPassives_.erase(found);
    return true;
}

void PassiveTriggerBuffer::noteTypingFocus(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    lastTypingFingerprint_ = field;
}

std::optional<FocusFingerprint> PassiveTriggerBuffer::lastTypingFingerprint() const {
    const std::lock_guard lock(bufferLock_);
    return lastTypingFingerprint_;
}
} // namespace snipwren
