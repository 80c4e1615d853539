#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/ProgramSession.h"

namespace snipwren {
class Log;
class Random;
struct Paths;

/// The life of every capture from its first character to its outcome, in one private file that only grows and is now and
/// then written anew with what still matters. Several programs write it at once; what a program that ended left without
/// an outcome is found by the next. Holds nothing open between calls and keeps nothing in memory. Thread safe; every
/// operation blocks for the disk.
class CaptureJournal {
public:
    /// Where a capture stands: the last of these that was written.
    enum class State : std::uint8_t { typing, confirmed, attempted, delivered, failed, cancelled, undone };
    struct Entry {
        std::string id;
        std::string target;
        std::string text;
        /// The picker's choice; both empty where there was none.
        std::string optionId;
        std::string optionName;
        State state = State::typing;
        /// The program that it belongs to.
        std::uint64_t session = 0;
        /// When Return was pressed; before that, when the text was last written.
        TimePoint at;
        /// What the last attempt noted before it acted; none: there was no attempt.
        std::optional<std::string> note;
        /// Of a delivered capture: the receipt's sentence and what undoing needs (empty: it cannot be undone).
        std::string receipt;
        std::string undo;
        /// Of a failed one.
        std::string error;
        /// The history has it.
        bool isRecorded = false;

        /// Still without an outcome.
        bool isOpen() const { return state <= State::attempted; }
    };
    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const Clock& clock;
        Random& random;
        Log& log;
        /// Frees some space on a full disk; false when there is none to free. May be empty.
        std::function<bool()> makeRoom;
    };
    template <class T>
    using Answer = FileIO::Answer<T>;

    static constexpr const char* fileName = "captures.journal";
    /// Texts longer than this are refused: a record of a damaged file could ask for any length.
    static constexpr std::size_t maxRecord = 64 * 1024 * 1024;
    /// The file is written anew once it has grown by this much.
    static constexpr std::size_t compactAfter = 512 * 1024;
    /// What is kept for the user's convenience: cancelled texts of a target, and captures that can be undone.
    static constexpr std::size_t keptCancelled = 5;
    static constexpr std::size_t keptUndoable = 20;
    static constexpr std::chrono::hours keptCancelledFor{7 * 24};
    static constexpr std::chrono::hours keptUndoableFor{24};

    explicit CaptureJournal(Dependencies dependencies);
    ~CaptureJournal();

    std::string path() const;
    /// Makes the folder, joins the programs that use the file, keeps damaged parts of it aside and writes it anew without
    /// them. To be called once, first.
    Answer<void> open();
    std::string newId();

    /// The text of a capture that is being typed.
    Answer<void> typed(const std::string& id, const std::string& target, const std::string& text);
    /// Return was pressed, at `capture.at`. On the disk for good when this answers; only then may anybody be told that it
    /// is kept.
    Answer<void> confirmed(const Entry& capture);
    /// A target is about to act. On the disk for good when this answers.
    Answer<void> attempted(const std::string& id, const std::string& note);
    Answer<void> delivered(const std::string& id, const std::string& receipt, const std::string& undo);
    /// The text is safe in the recovery log.
    Answer<void> failed(const std::string& id, const std::string& error);
    Answer<void> cancelled(const std::string& id, const std::string& target, const std::string& text);
    Answer<void> undone(const std::string& id);
    /// The outcome stands in the history; of a cancelled text: it was taken up again.
    Answer<void> recorded(const std::string& id);

    /// Everything that the file holds, oldest first.
    Answer<std::vector<Entry>> entries() const;
    /// The captures without an outcome whose program has ended; from now on they are this program's, and no other's.
    std::vector<Entry> adoptOrphans();
    /// Texts that were cancelled, newest first, each once.
    struct Offer {
        std::string id;
        std::string text;
    };
    std::vector<Offer> cancelledTexts(const std::string& target) const;
    /// The newest delivered capture that can still be taken back.
    std::optional<Entry> lastUndoable() const;

    Answer<void> compact();
    /// Drops every text that has had its outcome, also those kept for convenience.
    Answer<void> forgetFinished();

private:
    enum class Kind : std::uint8_t;
    struct Record;
    struct Contents;
    Answer<void> append(Kind kind, const std::string& id, TimePoint at, std::vector<std::string_view> fields,
                        bool durable = false);
    TimePoint now() const { return to_.clock.now(); }
    std::string encoded(const Record& record) const;
    static Contents decoded(std::string_view bytes);
    std::string condensed(const std::vector<Entry>& entries) const;
    Answer<void> rewrite(const std::function<bool(const Entry&)>& keep);
    static std::vector<bool> worthKeeping(const std::vector<Entry>& entries, TimePoint now);
    void keepAside(const std::string& damaged) const;

    const Dependencies to_;
    std::unique_ptr<ProgramSession> session_;
    std::atomic<std::size_t> grown_ = 0;
};
} // namespace snipwren
