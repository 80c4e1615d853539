#include "capture/CaptureDraft.h"

#include <utility>

namespace snipwren {
CaptureDraft::CaptureDraft(FileIO& files, std::string path, SerialQueue& queue)
    : files_(files),
      path_(std::move(path)),
      queue_(queue) {}

CaptureDraft::~CaptureDraft() {
    if (held_) discard();
}

void CaptureDraft::recover(const Keep& keep) {
    if (!files_.exists(path_)) return;
    const auto left = files_.read(path_);
    if (!left) return;
    const std::size_t end = left->find('\n');
    if (end == std::string::npos || keep(left->substr(end + 1), left->substr(0, end))) (void)files_.remove(path_);
}

void CaptureDraft::hold(const std::string& command, const std::string& text) {
    std::string bytes = command + '\n' + text;
    if (held_ == bytes) return;
    held_ = bytes;
    write(std::move(bytes));
}

void CaptureDraft::discard() {
    if (!held_) return;
    held_.reset();
    write(std::nullopt);
}

void CaptureDraft::write(std::optional<std::string> bytes) {
    {
        const std::lock_guard lock(contents_->lock);
        contents_->bytes = std::move(bytes);
        if (std::exchange(contents_->isScheduled, true)) return;
    }
    queue_.async([&files = files_, path = path_, contents = contents_] {
        std::optional<std::string> newest;
        {
            const std::lock_guard lock(contents->lock);
            newest = contents->bytes;
            contents->isScheduled = false;
        }
        // A disk that takes nothing now may not take the capture either; that one will say so.
        (void)(newest ? files.writeAtomic(path, *newest, privateFileMode) : files.remove(path));
    });
}
} // namespace snipwren
