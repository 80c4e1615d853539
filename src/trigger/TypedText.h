#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "platform/KeyboardTap.h"
#include "trigger/FocusFingerprint.h"

namespace snipwren {
/// The one model of the text before the caret: what was typed there without a break, as far as every key of it could be
/// followed. Whatever changes the text in another way (a shortcut, a click, a caret key, a missed key) makes it unknown,
/// and then only what is typed from there on is known. Trigger recognition, the tap's interest in keys and the removal of
/// a trigger all go by it. Thread safe (`bufferLock_`); following a key allocates nothing.
class TypedText {
public:
    static constexpr std::size_t passiveBufferLimit = 100; // Characters.
    static constexpr std::size_t passiveBufferRetentionMaxSlots = 2;
    static constexpr std::chrono::seconds passiveBufferRetentionMaxAge{120};

    struct Match {
        /// Index into the command words.
        std::size_t target = 0;
        /// The trigger as typed, slashes and word.
        std::string triggerBody;
        /// All of it was typed in one go, so that it certainly stands before the caret.
        bool isCertain = true;
    };

    /// The words in the order in which they are tried, in lower case.
    TypedText(const Clock& clock, std::vector<std::string> commandWords);
    ~TypedText();

    /// Follows one key that the application gets, or got; answers the trigger that it ends.
    std::optional<Match> apply(const KeyEvent& event);
    /// Which keys may be the next of a trigger. Any thread, without waiting.
    KeyInterest interest() const { return interest_; }

    /// The text before the caret is unknown from now on.
    void forget();
    /// A click: the next key finds the text unknown, unless the click went to another field, where the text of this one is
    /// kept as usual.
    void doubt();
    /// A secret is being typed: the text is overwritten in memory.
    void erase();
    std::string text() const;

    /// The keyboard moved from the current field (none: not known) to another. The text stays with the field it was typed
    /// in; a field returned to in time gets its text back, though not for certain: the caret may have been moved. Transient
    /// fields change nothing.
    void focusChanged(const FocusFingerprint& field);
    void suspend(const FocusFingerprint& field);
    /// False when no retained text of that field is young enough.
    bool restoreIfMatching(const FocusFingerprint& field);
    /// Which field the text belongs to from now on.
    void noteTypingFocus(const FocusFingerprint& field);
    std::optional<FocusFingerprint> lastTypingFingerprint() const;
    /// Changes with every change of field and every click: equal numbers mean that the caret is still in the same field.
    std::uint64_t placeNumber() const { return placeNumber_; }

private:
    struct RetainedPassiveBuffer {
        FocusFingerprint fingerprint;
        std::string text;
        SteadyPoint retainedAt;
    };
    void appendLocked(std::string_view characters);
    void deleteLocked();
    void clearLocked();
    std::optional<Match> matchLocked();
    /// `closely`: whatever the interest was; else a text that could not become interesting is not looked at.
    void updateInterestLocked(bool closely = false);
    void suspendLocked(const FocusFingerprint& field);
    bool restoreLocked(const FocusFingerprint& field);
    bool isBoundaryBefore(std::size_t start) const;

    const Clock& clock_;
    const std::vector<std::string> commandWords_;
    std::size_t longestWord_ = 0;
    mutable std::mutex bufferLock_;
    std::string normalBuffer_;
    /// Code points in normalBuffer_.
    std::size_t length_ = 0;
    /// So many bytes at its beginning were restored: they may not stand before the caret any more.
    std::size_t uncertainBytes_ = 0;
    bool isDoubted_ = false;
    std::deque<RetainedPassiveBuffer> retainedPassives_;
    std::optional<FocusFingerprint> lastTypingFingerprint_;
    std::atomic<KeyInterest> interest_ = KeyInterest::nothing;
    std::atomic<std::uint64_t> placeNumber_ = 0;
};
} // namespace snipwren
