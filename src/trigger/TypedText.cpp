#include "trigger/TypedText.h"

#include <algorithm>

#include "base/Text.h"
#include "trigger/FallbackKeyTable.h"
#include "trigger/TriggerBoundary.h"

namespace snipwren {
namespace {
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Letter case aside. Command words are ASCII.
bool isBeginningOf(std::string_view typed, std::string_view word) {
    return typed.size() <= word.size()
           && std::equal(typed.begin(), typed.end(), word.begin(), [](char t, char w) { return lower(t) == w; });
}

std::size_t lastScalarStart(std::string_view text) {
    std::size_t start = text.size();
    while (start > 0 && (static_cast<unsigned char>(text[--start]) & 0xC0) == 0x80) continue;
    return start;
}

/// In a way that the compiler does not leave out.
void overwrite(std::string& text) {
    volatile char* const bytes = text.data();
    for (std::size_t i = 0; i < text.capacity(); ++i) bytes[i] = '\0';
}
} // namespace

TypedText::TypedText(const Clock& clock, std::vector<std::string> commandWords)
    : clock_(clock),
      commandWords_(std::move(commandWords)) {
    for (const std::string& word : commandWords_) longestWord_ = std::max(longestWord_, word.size());
    // Four bytes for each kept character and as many for one event's: appending never allocates again.
    normalBuffer_.reserve(8 * passiveBufferLimit);
}

TypedText::~TypedText() { erase(); }

std::optional<TypedText::Match> TypedText::apply(const KeyEvent& event) {
    if (keycode::isModifier(event.keyCode)) return std::nullopt;
    const std::lock_guard lock(bufferLock_);
    if (isDoubted_) clearLocked();
    if (event.modifiers.makeShortcut()) {
        clearLocked();
    } else if (event.keyCode == keycode::space || event.keyCode == keycode::returnKey) {
        appendLocked(event.keyCode == keycode::space ? " " : "\n");
        auto match = matchLocked();
        updateInterestLocked();
        return match;
    } else if (event.keyCode == keycode::deleteKey) {
        deleteLocked();
        updateInterestLocked(true);
        return std::nullopt;
    } else if (!event.isComposing) {
        std::string_view typed = textOf(event.characters);
        if (event.characters.empty()) typed = FallbackKeyTable::characters(event.keyCode, event.modifiers.shift);
        // A key that moves the caret, completes a word, ends a mode: nobody knows what it did to the text.
        if (typed.empty()) {
            clearLocked();
        } else {
            appendLocked(typed);
            // Nearly every key: nothing of a trigger before it, and none that begins with it.
            if (interest_ == KeyInterest::nothing && normalBuffer_.back() != '/') return std::nullopt;
        }
    }
    updateInterestLocked();
    return std::nullopt;
}

void TypedText::appendLocked(std::string_view characters) {
    if (characters.size() > 4 * passiveBufferLimit)
        characters.remove_prefix(characters.size() - 4 * passiveBufferLimit);
    normalBuffer_.append(characters);
    length_ += characters.size() == 1 ? 1 : codePointCount(characters);
    std::size_t dropped = 0;
    for (; length_ > passiveBufferLimit && dropped < normalBuffer_.size(); --length_) {
        if (static_cast<unsigned char>(normalBuffer_[dropped]) < 0x80) {
            ++dropped;
        } else {
            nextScalar(normalBuffer_, dropped);
        }
    }
    if (dropped > 0) normalBuffer_.erase(0, dropped);
    uncertainBytes_ -= std::min(uncertainBytes_, dropped);
}

void TypedText::deleteLocked() {
    const std::size_t start = lastCharacterStart(normalBuffer_);
    const std::string_view last = std::string_view(normalBuffer_).substr(start);
    // Of a character that is made of several, some programs take the last part and others the whole. And Return may have
    // begun a line, sent the text away or done nothing, so nobody knows what a Backspace behind it takes.
    if (last == "\n" || codePointCount(last) > 1) return clearLocked();
    normalBuffer_.resize(start);
    length_ = codePointCount(normalBuffer_);
    uncertainBytes_ = std::min(uncertainBytes_, start);
}

void TypedText::clearLocked() {
    normalBuffer_.clear();
    length_ = 0;
    uncertainBytes_ = 0;
    isDoubted_ = false;
}

bool TypedText::isBoundaryBefore(std::size_t start) const {
    if (start == 0) return TriggerBoundary::isValid(std::nullopt);
    const std::string_view before = std::string_view(normalBuffer_).substr(0, start);
    std::size_t offset = lastScalarStart(before);
    return TriggerBoundary::isValid(nextScalar(before, offset));
}

std::optional<TypedText::Match> TypedText::matchLocked() {
    // Without the Space or newline that was just appended.
    const std::string_view typed = std::string_view(normalBuffer_).substr(0, normalBuffer_.size() - 1);
    // Most words are followed by a Space, and few by two slashes.
    if (typed.substr(typed.size() - std::min(typed.size(), longestWord_ + 2)).find('/') == std::string_view::npos)
        return std::nullopt;
    for (std::size_t target = 0; target < commandWords_.size(); ++target) {
        const std::string& word = commandWords_[target];
        if (typed.size() < word.size() + 2) continue;
        const std::size_t start = typed.size() - word.size() - 2;
        if (typed.compare(start, 2, "//") != 0 || !isBeginningOf(typed.substr(start + 2), word)) continue;
        if (!isBoundaryBefore(start)) {
            // Cut, so that it is not found again. The document keeps it: what stands before is unknown from here on.
            const char ending = normalBuffer_.back();
            clearLocked();
            appendLocked({&ending, 1});
            return std::nullopt;
        }
        return Match{target, std::string(typed.substr(start)), start >= uncertainBytes_};
    }
    return std::nullopt;
}

void TypedText::updateInterestLocked(bool closely) {
    const std::string_view text = normalBuffer_;
    KeyInterest interest = KeyInterest::nothing;
    // Only behind a slash, or within a word that may follow two, can the next key belong to a trigger.
    if (!text.empty() && (closely || text.back() == '/' || interest_ != KeyInterest::nothing)) {
        const std::size_t window = std::min(text.size(), longestWord_ + 2);
        const std::size_t slash = text.substr(text.size() - window).rfind('/');
        const std::size_t last = slash == std::string_view::npos ? slash : text.size() - window + slash;
        if (last != std::string_view::npos && last > 0 && text[last - 1] == '/') {
            const std::string_view word = text.substr(last + 1);
            if (isBoundaryBefore(last - 1)
                && std::any_of(commandWords_.begin(), commandWords_.end(),
                               [&](const std::string& candidate) { return isBeginningOf(word, candidate); }))
                interest = KeyInterest::terminators;
        } else if (last == text.size() - 1 && isBoundaryBefore(last)) {
            interest = KeyInterest::nextSlash;
        }
    }
    if (interest_ != interest) interest_ = interest;
}

void TypedText::forget() {
    const std::lock_guard lock(bufferLock_);
    clearLocked();
    interest_ = KeyInterest::nothing;
}

void TypedText::doubt() {
    const std::lock_guard lock(bufferLock_);
    ++placeNumber_;
    isDoubted_ = true;
    interest_ = KeyInterest::nothing;
}

void TypedText::erase() {
    const std::lock_guard lock(bufferLock_);
    if (!normalBuffer_.empty()) overwrite(normalBuffer_);
    clearLocked();
    interest_ = KeyInterest::nothing;
}

std::string TypedText::text() const {
    const std::lock_guard lock(bufferLock_);
    return isDoubted_ ? std::string() : normalBuffer_;
}

void TypedText::focusChanged(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    if (lastTypingFingerprint_ == field) return;
    ++placeNumber_;
    if (lastTypingFingerprint_) suspendLocked(*lastTypingFingerprint_);
    clearLocked();
    restoreLocked(field);
    lastTypingFingerprint_ = field;
}

void TypedText::suspend(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    suspendLocked(field);
}

void TypedText::suspendLocked(const FocusFingerprint& field) {
    std::erase_if(retainedPassives_, [&](const auto& retained) { return retained.fingerprint == field; });
    if (!normalBuffer_.empty()) retainedPassives_.push_back({field, normalBuffer_, clock_.steadyNow()});
    while (retainedPassives_.size() > passiveBufferRetentionMaxSlots) retainedPassives_.pop_front();
    clearLocked();
    interest_ = KeyInterest::nothing;
}

bool TypedText::restoreIfMatching(const FocusFingerprint& field) {
    if (field.isTransient()) return false;
    const std::lock_guard lock(bufferLock_);
    return restoreLocked(field);
}

bool TypedText::restoreLocked(const FocusFingerprint& field) {
    const SteadyPoint now = clock_.steadyNow();
    std::erase_if(retainedPassives_,
                  [&](const auto& retained) { return now - retained.retainedAt > passiveBufferRetentionMaxAge; });
    const auto found = std::find_if(retainedPassives_.begin(), retainedPassives_.end(),
                                    [&](const auto& retained) { return retained.fingerprint == field; });
    if (found == retainedPassives_.end()) return false;
    normalBuffer_.assign(found->text); // Assigned, not moved: the reserved storage stays.
    length_ = codePointCount(normalBuffer_);
    uncertainBytes_ = normalBuffer_.size();
    isDoubted_ = false;
    retainedPassives_.erase(found);
    updateInterestLocked(true);
    return true;
}

void TypedText::noteTypingFocus(const FocusFingerprint& field) {
    if (field.isTransient()) return;
    const std::lock_guard lock(bufferLock_);
    lastTypingFingerprint_ = field;
}

std::optional<FocusFingerprint> TypedText::lastTypingFingerprint() const {
    const std::lock_guard lock(bufferLock_);
    return lastTypingFingerprint_;
}
} // namespace snipwren
