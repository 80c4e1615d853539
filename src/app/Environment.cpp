#include "app/Environment.h"

namespace snipwren {
namespace {
Paths pathsFromEnvironment() {
    PosixFileIO files;
    return Paths::fromEnvironment(files);
}
} // namespace

Environment::Environment() : Environment(pathsFromEnvironment()) {}

Environment::Environment(Paths paths)
    : paths_(std::move(paths)),
      defaults_(files_, paths_.defaultsFile),
      mainQueue_("com.snipwren.main", ThreadQueue::Runs::inRunCall),
      notifications_(mainQueue_) {}

const Calendar& Environment::calendar() {
    if (!calendar_) calendar_ = Calendar::system();
    return *calendar_;
}

Log& Environment::log() {
    if (!log_) log_ = std::make_unique<FileLog>(paths_.logFile);
    return *log_;
}
} // namespace snipwren
