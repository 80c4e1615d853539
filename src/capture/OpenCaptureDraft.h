#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "base/SerialQueue.h"
#include "records/CaptureJournal.h"

namespace snipwren {
/// Brings the text of the open capture into the journal a moment after each change, so that not even a program that is
/// killed loses it. Only the newest text is ever written. Main queue.
class OpenCaptureDraft {
public:
    static constexpr std::chrono::milliseconds delay{300};

    OpenCaptureDraft(CaptureJournal& journal, SerialQueue& journalQueue)
        : journal_(journal),
          journalQueue_(journalQueue) {}

    /// Another capture begins.
    void begin(std::string target);
    const std::string& id() const { return id_; }
    void changed(const std::string& text);
    /// It was cancelled with this text, which is offered again.
    void cancel(const std::string& text);
    /// It was confirmed: its text needs no writing any more.
    void end();

private:
    struct Newest {
        std::mutex lock;
        std::string text;
        bool isScheduled = false;
        bool hasEnded = false;
    };

    CaptureJournal& journal_;
    SerialQueue& journalQueue_;
    std::string id_;
    std::string target_;
    /// Something of it may stand in the journal.
    bool wasWritten_ = false;
    /// Shared with the queue.
    std::shared_ptr<Newest> newest_;
};
} // namespace snipwren
