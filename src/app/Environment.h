#pragma once

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "base/Calendar.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/ThreadQueue.h"
#include "base/UserDefaults.h"

namespace snipwren {
/// The base services of a running program, one of each: everything that knows the machine but no host. Commands that
/// need nothing else take this and not the whole Application, and so start fast.
class Environment {
public:
    /// Folders from the environment variables.
    Environment();
    /// All folders as given: demonstrations in a scratch folder, tests. `mainQueue` is a toolkit's loop; without one
    /// the main queue is loop().
    explicit Environment(Paths paths, SerialQueue* mainQueue = nullptr);

    ~Environment();

    /// Reads the settings; the answer is a sentence to show when they were damaged.
    std::optional<std::string> loadDefaults() { return defaults_.load(); }

    FileIO& files() { return files_; }
    const Paths& paths() const { return paths_; }
    Clock& clock() { return clock_; }
    /// Made on first use: opening the zone and locale data takes milliseconds.
    const Calendar& calendar();
    Log& log();
    /// Shows every log line on the stream too, from now on; null ends it.
    void showLogOn(std::ostream* stream);
    Random& random() { return random_; }
    UserDefaults& defaults() { return defaults_; }
    SerialQueue& mainQueue() { return mainQueue_; }
    /// The main queue of a program without a toolkit: its tasks run inside the main thread's run() calls.
    ThreadQueue& loop() { return loop_; }
    NotificationCenter& notifications() { return notifications_; }

private:
    PosixFileIO files_;
    Paths paths_;
    SystemClock clock_;
    SystemRandom random_;
    std::optional<Calendar> calendar_;
    class ShownLog;
    std::unique_ptr<ShownLog> log_;
    UserDefaults defaults_;
    ThreadQueue loop_;
    SerialQueue& mainQueue_;
    NotificationCenter notifications_;
};
} // namespace snipwren
