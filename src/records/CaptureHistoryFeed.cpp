#include "records/CaptureHistoryFeed.h"

#include <algorithm>

namespace snipwren {
void CaptureHistoryFeed::record(CaptureJournal::Entry capture, bool success) {
    to_.queue.async([this, capture = std::move(capture), success] {
        if (!bring(capture, success)) retryLater();
    });
}

void CaptureHistoryFeed::catchUp() {
    to_.queue.async([this] {
        const auto entries = to_.journal.entries();
        if (!entries) return;
        for (const CaptureJournal::Entry& entry : *entries) {
            using enum CaptureJournal::State;
            const bool arrived = entry.state == delivered || entry.state == undone;
            if (entry.isRecorded || (!arrived && entry.state != failed)) continue;
            if (!bring(entry, arrived)) return retryLater();
        }
        pause_ = firstRetry;
    });
}

bool CaptureHistoryFeed::bring(const CaptureJournal::Entry& capture, bool success) {
    if (!to_.history.record(capture.target, capture.text, success, capture.at)) return false;
    // Not written: it comes again, and the history knows it. What cannot be undone has no business in the journal any more.
    if (to_.journal.recorded(capture.id)) (void)to_.journal.compact();
    return true;
}

void CaptureHistoryFeed::retryLater() {
    if (isRetryScheduled_) return;
    isRetryScheduled_ = true;
    to_.queue.asyncAfter(pause_, [this] {
        isRetryScheduled_ = false;
        catchUp();
    });
    pause_ = std::min(2 * pause_, longestRetry);
}
} // namespace snipwren
