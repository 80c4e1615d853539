#include "capture/OpenCaptureDraft.h"

#include <utility>

#include "base/Text.h"

namespace snipwren {
void OpenCaptureDraft::begin(std::string target) {
    end();
    id_ = journal_.newId();
    target_ = std::move(target);
    wasWritten_ = false;
    newest_ = std::make_shared<Newest>();
}

void OpenCaptureDraft::changed(const std::string& text) {
    if (!newest_) return;
    wasWritten_ = true;
    {
        const std::lock_guard lock(newest_->lock);
        newest_->text = text;
        if (std::exchange(newest_->isScheduled, true)) return;
    }
    journalQueue_.asyncAfter(delay, [&journal = journal_, id = id_, target = target_, newest = newest_] {
        std::string latest;
        {
            const std::lock_guard lock(newest->lock);
            newest->isScheduled = false;
            if (newest->hasEnded) return;
            latest = newest->text;
        }
        // A disk that takes nothing now may not take the capture either; that one will say so.
        (void)journal.typed(id, target, latest);
    });
}

void OpenCaptureDraft::cancel(const std::string& text) {
    const bool isWorthKeeping = !trimmed(text).empty();
    if (newest_ && (wasWritten_ || isWorthKeeping))
        journalQueue_.async(
            [&journal = journal_, id = id_, target = target_, text] { (void)journal.cancelled(id, target, text); });
    end();
}

void OpenCaptureDraft::end() {
    if (!newest_) return;
    const std::lock_guard lock(newest_->lock);
    newest_->hasEnded = true;
}
} // namespace snipwren
