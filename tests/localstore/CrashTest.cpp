#include <algorithm>
#include <csignal>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "records/CaptureHistoryStore.h"
#include "records/FallbackCaptureLogger.h"
#include "store/DatabaseManager.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
/// What a process of its own does with the store: it keeps writing texts into the recovery log and the history.
class Recorder {
public:
    explicit Recorder(const Paths& paths) : paths_(paths) {
        manager_.open();
        history_.open();
    }
    bool write(const std::string& text) {
        history_.record("note", text, false);
        return logger_.saveFallback(text, "note", "not reached");
    }
    std::vector<std::string> logged() {
        std::vector<std::string> texts;
        for (const auto& entry : logger_.readEntries(SIZE_MAX)) texts.push_back(entry.text);
        std::ranges::reverse(texts);
        return texts;
    }
    std::vector<std::string> recorded() {
        std::vector<std::string> texts;
        for (const auto& row : manager_.executeQuery("SELECT text FROM capture_history ORDER BY id;"))
            texts.push_back(row.at("text"));
        return texts;
    }
    bool isWhole() {
        return manager_.isPersistent() && manager_.executeQuery("PRAGMA quick_check;").front().at("quick_check") == "ok"
               && manager_.fetchExclusionList().size() == 7;
    }

private:
    const Paths& paths_;
    PosixFileIO files_;
    SystemClock wall_;
    ManualClock clock_{wall_.now()};
    ManualQueue mainQueue_{"main", clock_};
    ManualQueue databaseQueue_{DatabaseManager::queueLabel, clock_};
    NotificationCenter notifications_{mainQueue_};
    UserDefaults defaults_{files_, paths_.defaultsFile};
    MemoryLog log_;
    DatabaseManager manager_{{.files = files_,
                              .paths = paths_,
                              .clock = clock_,
                              .defaults = defaults_,
                              .queue = databaseQueue_,
                              .log = log_}};
    CaptureHistoryStore history_{{.database = manager_, .clock = clock_, .notifications = notifications_, .log = log_}};
    FallbackCaptureLogger logger_{files_, paths_, clock_, notifications_};
};

/// A child process and the pipe on which it tells each finished write by one byte.
class Child {
public:
    explicit Child(const std::function<void(int pipe)>& work) {
        int ends[2];
        if (::pipe(ends) != 0) std::abort();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(ends[0]);
            work(ends[1]);
            ::_exit(0);
        }
        ::close(ends[1]);
        pipe_ = ends[0];
    }
    Child(const Child&) = delete;
    ~Child() { ::close(pipe_); }
    /// False at the end of the pipe.
    bool waitForOne() const {
        char byte = 0;
        return ::read(pipe_, &byte, 1) == 1;
    }
    void kill() const { ::kill(pid_, SIGKILL); }
    int wait() const {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        return status;
    }

private:
    pid_t pid_ = -1;
    int pipe_ = -1;
};

void tell(int pipe) {
    if (::write(pipe, "x", 1) != 1) ::_exit(1);
}

TEST(Crash, AKilledWriterLosesNothingItHasFinished) {
    constexpr int rounds = 200;
    const TemporaryFolder folder(TemporaryFolder::inMemory()); // A killed process needs no disk.
    const Paths paths = Paths::under(folder.path());
    std::mt19937 random(20250304);
    std::vector<std::string> logged;
    std::vector<std::string> recorded;
    for (int round = 0; round < rounds; ++round) {
        const std::string start = "round " + std::to_string(round) + " text ";
        const std::string padding(random() % 600, 'p');
        const Child child([&](int pipe) {
            Recorder recorder(paths);
            tell(pipe);
            for (int i = 0; recorder.write(start + std::to_string(i) + padding); ++i) tell(pipe);
        });
        int told = 0; // The first byte says that the database is open, each further one that a text is written.
        for (auto wanted = random() % 4; wanted-- > 0 && child.waitForOne();) ++told;
        // Some work of random length, so that the end comes at any point of the next write.
        for (volatile auto spin = random() % 400'000; spin > 0;) spin = spin - 1;
        child.kill();
        child.wait();
        while (child.waitForOne()) ++told;

        Recorder after(paths);
        ASSERT_TRUE(after.isWhole()) << "round " << round;
        // In both places: all from before, all that was finished, and perhaps the one that was cut off.
        const auto check = [&](std::vector<std::string>& known, const std::vector<std::string>& now) {
            for (int i = 0; i + 1 < told; ++i) known.push_back(start + std::to_string(i) + padding);
            if (now.size() == known.size() + 1)
                known.push_back(start + std::to_string(std::max(told - 1, 0)) + padding);
            return now == known;
        };
        ASSERT_TRUE(check(logged, after.logged())) << "round " << round;
        ASSERT_TRUE(check(recorded, after.recorded())) << "round " << round;
    }
    EXPECT_GT(logged.size(), 50u) << "the writers hardly wrote";
}

TEST(Crash, TwoProcessesRecordAtOnceAndLoseNothing) {
    constexpr int writers = 2;
    constexpr int texts = 150;
    const TemporaryFolder folder(TemporaryFolder::inMemory()); // A killed process needs no disk.
    const Paths paths = Paths::under(folder.path());
    std::vector<std::unique_ptr<Child>> children;
    for (int writer = 0; writer < writers; ++writer) {
        children.push_back(std::make_unique<Child>([&](int) {
            Recorder recorder(paths);
            for (int i = 0; i < texts; ++i)
                if (!recorder.write(std::to_string(writer) + " " + std::to_string(i))) ::_exit(1);
        }));
    }
    for (const auto& child : children) EXPECT_EQ(child->wait(), 0);
    Recorder after(paths);
    EXPECT_TRUE(after.isWhole());
    auto logged = after.logged();
    auto recorded = after.recorded();
    EXPECT_EQ(logged.size(), static_cast<std::size_t>(writers * texts));
    std::ranges::sort(logged);
    std::ranges::sort(recorded);
    EXPECT_EQ(recorded, logged);
    EXPECT_EQ(std::ranges::adjacent_find(logged), logged.end());
}
} // namespace
} // namespace snipwren
