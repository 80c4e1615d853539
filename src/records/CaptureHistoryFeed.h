#pragma once

#include <chrono>

#include "base/SerialQueue.h"
#include "records/CaptureHistoryStore.h"
#include "records/CaptureJournal.h"

namespace snipwren {
/// Brings the outcomes that the journal holds into the history, on a queue of its own, so that no capture ever waits for a
/// database. One that is locked is tried again later; what it has not taken by the program's end, the next program brings.
/// Any thread.
class CaptureHistoryFeed {
public:
    static constexpr std::chrono::seconds firstRetry{2};
    static constexpr std::chrono::seconds longestRetry{60};

    struct Dependencies {
        CaptureHistoryStore& history;
        CaptureJournal& journal;
        /// `com.snipwren.app.history`; drained before what it uses goes.
        SerialQueue& queue;
    };
    explicit CaptureHistoryFeed(const Dependencies& dependencies) : to_(dependencies) {}

    /// The journal has a new outcome: `capture` as it is in the history, and whether it arrived.
    void record(CaptureJournal::Entry capture, bool success);
    /// What earlier programs left.
    void catchUp();

private:
    bool bring(const CaptureJournal::Entry& capture, bool success);
    void retryLater();

    const Dependencies to_;
    /// On the queue.
    std::chrono::seconds pause_ = firstRetry;
    bool isRetryScheduled_ = false;
};
} // namespace snipwren
