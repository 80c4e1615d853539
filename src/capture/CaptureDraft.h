#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/FileIO.h"
#include "base/SerialQueue.h"

namespace snipwren {
/// The text of the open capture on the disk, so that not even a program that is killed loses it: one private file, written
/// on a queue of its own a moment after each change and removed when the capture has come to its end. Main queue.
class CaptureDraft {
public:
    /// Keeps a text that was left behind for good; false when it could not.
    using Keep = std::function<bool(const std::string& text, const std::string& command)>;

    /// The file's folder must exist.
    CaptureDraft(FileIO& files, std::string path, SerialQueue& queue);
    ~CaptureDraft();

    /// Hands over what a killed program left, and removes it once it is safe elsewhere. To be called first.
    void recover(const Keep& keep);
    void hold(const std::string& command, const std::string& text);
    void discard();

private:
    struct Contents {
        /// None: no file.
        std::optional<std::string> bytes;
        bool isScheduled = false;
        std::mutex lock;
    };
    void write(std::optional<std::string> bytes);

    FileIO& files_;
    const std::string path_;
    SerialQueue& queue_;
    std::optional<std::string> held_;
    /// Shared with the queue; only the newest contents are ever written.
    const std::shared_ptr<Contents> contents_ = std::make_shared<Contents>();
};
} // namespace snipwren
