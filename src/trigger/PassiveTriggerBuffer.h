#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "trigger/FocusFingerprint.h"

namespace snipwren {
/// The last characters typed in the focused field, and those of the fields left a moment ago. Every operation takes the
/// buffer's own lock (the `bufferLock`); appending and matching allocate nothing.
class PassiveTriggerBuffer {
public:
    static constexpr std::size_t passiveBufferLimit = 100; // Characters.
    static constexpr std::size_t passiveBufferRetentionMaxSlots = 2;
    static constexpr std::chrono::seconds passiveBufferRetentionMaxAge{120};

    struct Match {
        /// Index into the command words.
        std::size_t target = 0;
        /// The trigger as typed, slashes and word.
        std::string triggerBody;
    };

    explicit PassiveTriggerBuffer(const Clock& clock);

    void append(std::string_view characters);
    /// Takes back the last character, as Delete does in the field.
    void removeLastCharacter();
    void clear();
    std::string text() const;

    /// Called after a Space or newline was appended: the first command word whose trigger the text ends with, when what
    /// stands before it allows a trigger. A trigger that its boundary forbids is cut from the buffer.
    std::optional<Match> takeMatch(const std::vector<std::string>& commandWords);

    /// The keyboard moved from the current field (none: not known) to another. The text stays with the field it was typed
    /// in; a field returned to in time gets its text back. Transient fields change nothing.
    void focusChanged(const FocusFingerprint& field);
    void suspend(const FocusFingerprint& field);
    /// False when no retained text of that field is young enough.
    bool restoreIfMatching(const FocusFingerprint& field);
    /// Which field the text belongs to from now on.
    void noteTypingFocus(const FocusFingerprint& field);
    std::optional<FocusFingerprint> lastTypingFingerprint() const;

private:
    struct RetainedPassiveBuffer {
        FocusFingerprint fingerprint;
        std::string text;
        SteadyPoint retainedAt;
    };
    void suspendLocked(const FocusFingerprint& field);
    bool restoreLocked(const FocusFingerprint& field);

    const Clock& clock_;
    mutable std::mutex bufferLock_;
    std::string normalBuffer_;
    /// Code points in normalBuffer_.
    std::size_t length_ = 0;
    std::deque<RetainedPassiveBuffer> retainedPassives_;
    std::optional<FocusFingerprint> lastTypingFingerprint_;
};
} // namespace snipwren
