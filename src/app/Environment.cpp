#include "app/Environment.h"

#include <ostream>

namespace snipwren {
namespace {
Paths pathsFromEnvironment() {
    PosixFileIO files;
    return Paths::fromEnvironment(files);
}
} // namespace

/// The log file, and a stream beside it for whoever wants to watch.
class Environment::ShownLog final : public Log {
public:
    explicit ShownLog(const std::string& path) : file_(path) {}
    void line(std::string_view text) override {
        file_.line(text);
        const std::lock_guard lock(mutex_);
        if (stream_) *stream_ << text << "\n" << std::flush;
    }
    void showOn(std::ostream* stream) {
        const std::lock_guard lock(mutex_);
        stream_ = stream;
    }

private:
    FileLog file_;
    std::mutex mutex_;
    std::ostream* stream_ = nullptr;
};

Environment::Environment() : Environment(pathsFromEnvironment()) {}

Environment::Environment(Paths paths, SerialQueue* mainQueue)
    : paths_(std::move(paths)),
      defaults_(files_, paths_.defaultsFile),
      loop_("com.snipwren.main", ThreadQueue::Runs::inRunCall),
      mainQueue_(mainQueue ? *mainQueue : loop_),
      notifications_(mainQueue_) {}

Environment::~Environment() = default;

const Calendar& Environment::calendar() {
    if (!calendar_) calendar_ = Calendar::system();
    return *calendar_;
}

Log& Environment::log() {
    if (!log_) log_ = std::make_unique<ShownLog>(paths_.logFile);
    return *log_;
}

void Environment::showLogOn(std::ostream* stream) {
    log();
    log_->showOn(stream);
}
} // namespace snipwren
