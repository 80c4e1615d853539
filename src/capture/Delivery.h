#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/SerialQueue.h"
#include "capture/CaptureTargets.h"
#include "records/CaptureHistoryFeed.h"
#include "records/CaptureJournal.h"
#include "records/CaptureLanding.h"
#include "records/FallbackCaptureLogger.h"

namespace snipwren {
/// The one road from a confirmed capture to its target, whoever asks: each target has a lane of its own, in which captures
/// keep their order and one that is stuck holds up no other target's. What becomes of a capture stands in the journal, so
/// that it survives this program: delivery happens at least once, and exactly once where the target can tell. Thread safe.
class Delivery {
public:
    /// A lane whose oldest capture waits longer is behind.
    static constexpr std::chrono::seconds behindAfter{3};

    struct Dependencies {
        const CaptureTargets& targets;
        CaptureJournal& journal;
        FallbackCaptureLogger& recoveryLog;
        CaptureHistoryFeed& history;
        CaptureLanding& landing;
        NotificationCenter& notifications;
        SerialQueue& mainQueue;
        /// Where a text is put into the recovery log while its lane is stuck.
        SerialQueue& journalQueue;
        const Clock& clock;
        Log& log;
        /// Makes the queue of one lane, with a thread of its own.
        std::function<std::unique_ptr<SerialQueue>(const std::string& label)> makeLane;
    };
    struct Request {
        /// The journal's identifier of a capture that it knows already; empty for a new one.
        std::string id;
        std::string target;
        std::string text;
        std::optional<PickerOption> option;
        /// The text stands there already: a failure does not put it there again.
        bool isInRecoveryLog = false;
    };
    /// What waits in a lane.
    struct Backlog {
        std::string target;
        std::size_t waiting = 0;
        std::chrono::seconds oldest{0};
    };
    /// What was done about captures that an earlier program left behind.
    struct Recovered {
        std::vector<CaptureJournal::Entry> delivering;
        std::vector<CaptureJournal::Entry> kept;
    };
    using UndoDone = std::function<void(const Result<std::string, CaptureError>& outcome)>;

    explicit Delivery(const Dependencies& dependencies);
    ~Delivery();

    /// Confirms the capture: it is on the disk when this answers with its identifier, and on its way. Blocks for the disk.
    Result<std::string, CaptureError> accept(const Request& request);
    /// A capture that was typed and will not be confirmed: its text goes into the recovery log, with a notice. Blocks for the
    /// disk.
    void keepUnconfirmed(const Request& request, const CaptureError& reason);
    /// Delivers what ended programs left without an outcome, or puts it into the recovery log, and tells the user once.
    Recovered recover();
    /// Takes a delivered capture back, in its target's lane; `done` is called there, or at once when there is nothing to
    /// take back. Blocks for the disk.
    void undo(const std::string& id, const UndoDone& done);
    void undoLast(const UndoDone& done);

    /// Nothing waits and nothing is being sent, but for what has been offered for elsewhere.
    bool isIdle() const;
    /// Lanes that are behind, in registry order.
    std::vector<Backlog> backlog() const;

    /// Ends the lanes; what has not been delivered by then stays in the journal for the next program. False when a target
    /// still holds a thread after `limit`: then nothing that it uses may be destroyed.
    bool finish(std::chrono::milliseconds limit);

private:
    enum class Progress { waiting, sending, offeredElsewhere, delivered };
    struct Item {
        CaptureJournal::Entry capture;
        CaptureTarget* target = nullptr;
        std::atomic<Progress> progress = Progress::waiting;
        SteadyPoint since;
        SerialQueue::TimerId timer = 0;
        bool isInRecoveryLog = false;
    };
    class Attempt;

    SerialQueue& lane(const CaptureTarget& target);
    void enqueue(CaptureJournal::Entry capture, CaptureTarget& target, bool isInRecoveryLog = false);
    void run(const std::shared_ptr<Item>& item);
    void arrived(const Item& item, const CaptureReceipt& receipt);
    void overdue(const std::shared_ptr<Item>& item);
    /// It has left the lane.
    void settle(const std::shared_ptr<Item>& item);
    CaptureJournal::Entry entryOf(const Request& request) const;
    /// The capture, or why it cannot be taken back.
    Result<CaptureJournal::Entry, CaptureError> undoable(const std::string& id) const;
    /// Into the recovery log unless it is there, and into the history, with a notice.
    void failed(const Item& item, const CaptureError& error);
    void tellFailure(const CaptureJournal::Entry& capture, const CaptureError& error, bool saved);
    /// Into the recovery log; true when the text is safe there, or there is none. One that was never confirmed is nothing for
    /// the history.
    bool keep(const CaptureJournal::Entry& capture, const std::string& reason, bool wasConfirmed = true);

    const Dependencies to_;
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<std::shared_ptr<Item>>> items_;
    bool isFinishing_ = false;
    std::stop_source stop_;
    /// Main-queue tasks of ours that run after the destructor find this gone.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    /// By command word, made with the first capture. Last: its threads use all the others.
    std::map<std::string, std::unique_ptr<SerialQueue>> lanes_;
};
} // namespace snipwren
