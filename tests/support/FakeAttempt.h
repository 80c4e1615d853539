#pragma once

#include <string>
#include <utility>
#include <vector>

#include "capture/CaptureTarget.h"

namespace snipwren {
/// An attempt that keeps what it is to note, can refuse to, and can follow one that was cut off.
class FakeAttempt final : public CaptureAttempt {
public:
    enum class Notes { kept, refused, keptAndCutOff };

    explicit FakeAttempt(TimePoint confirmedAt, std::string captureId = "00000000-0000-4000-8000-000000000001")
        : captureId_(std::move(captureId)),
          confirmedAt_(confirmedAt) {}

    /// keptAndCutOff: the note is on the disk, and then the program is killed.
    Notes behaviour = Notes::kept;
    std::vector<std::string> notes;

    /// The next attempt at the same capture.
    FakeAttempt next() const {
        FakeAttempt attempt(confirmedAt_, captureId_);
        attempt.earlier_ = notes.empty() ? earlier_ : notes.back();
        return attempt;
    }
    void requestStop() { source_.request_stop(); }

    const std::string& captureId() const override { return captureId_; }
    TimePoint confirmedAt() const override { return confirmedAt_; }
    const std::stop_token& stop() const override { return token_; }
    const std::optional<std::string>& earlierNote() const override { return earlier_; }
    Result<void, CaptureError> note(const std::string& evidence) override {
        if (behaviour != Notes::refused) notes.push_back(evidence);
        if (behaviour == Notes::kept) return {};
        return unexpected(CaptureError{"CaptureJournal", 1, "The journal could not be written."});
    }

private:
    std::string captureId_;
    TimePoint confirmedAt_;
    std::stop_source source_;
    std::stop_token token_ = source_.get_token();
    std::optional<std::string> earlier_;
};
} // namespace snipwren
