#include <atomic>
#include <csignal>
#include <filesystem>
#include <limits>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/ProgramSession.h"
#include "base/Text.h"
#include "base/UserDefaults.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
unsigned modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(FileIO, AppendsWholeLinesFromManyWriters) {
    TemporaryFolder folder;
    const std::string path = folder.file("log");
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer)
        writers.emplace_back([&, writer] {
            PosixFileIO files;
            const std::string line(200, static_cast<char>('a' + writer));
            for (int i = 0; i < 100; ++i) ASSERT_TRUE(files.append(path, line + "\n"));
        });
    for (std::thread& writer : writers) writer.join();
    const std::string content = PosixFileIO().read(path).value();
    const auto lines = split(content, '\n');
    ASSERT_EQ(lines.size(), 401U);
    for (std::size_t i = 0; i < 400; ++i)
        EXPECT_EQ(lines[i].find_first_not_of(lines[i].front()), std::string_view::npos) << lines[i];
}

TEST(FileIO, AppendBeginsOnAFreshLineWhenAsked) {
    TemporaryFolder folder;
    PosixFileIO files;
    FileIO::AppendOptions options;
    options.onFreshLine = true;
    options.mode = privateFileMode;
    const std::string path = folder.file("note");
    ASSERT_TRUE(files.append(path, "one", options));
    ASSERT_TRUE(files.append(path, "two\n", options));
    ASSERT_TRUE(files.append(path, "three\n", options));
    EXPECT_EQ(files.read(path).value(), "one\ntwo\nthree\n");
    EXPECT_EQ(modeOf(path), privateFileMode);
}

TEST(FileIO, AtomicWriteKeepsModeAndFollowsLinks) {
    TemporaryFolder folder;
    PosixFileIO files;
    const std::string real = folder.file("real");
    const std::string link = folder.file("link");
    ASSERT_TRUE(files.writeAtomic(real, "old", 0640));
    ASSERT_EQ(::symlink(real.c_str(), link.c_str()), 0);
    ASSERT_TRUE(files.writeAtomic(link, "new", std::nullopt));
    EXPECT_EQ(files.read(real).value(), "new");
    EXPECT_EQ(modeOf(real), 0640U);
    EXPECT_EQ(files.list(folder.path()).value(), (std::vector<std::string>{"link", "real"})) << "nothing left over";
    const auto failed = files.writeAtomic(folder.file("none/x"), "y", std::nullopt);
    ASSERT_FALSE(failed);
    EXPECT_NE(failed.error().description.find("none/x"), std::string::npos);
}

/// Holds a file's lock as another program does.
class Rival {
public:
    explicit Rival(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC)) {
        EXPECT_EQ(::flock(fd_, LOCK_EX), 0);
    }
    ~Rival() { release(); }
    /// Until somebody else has the file open as well, and so waits for the lock or soon will.
    void waitForAnother(const std::atomic<bool>& isOver) const {
        struct stat mine {};
        EXPECT_EQ(::fstat(fd_, &mine), 0);
        for (int openings = 0; openings < 2 && !isOver; std::this_thread::yield()) {
            openings = 0;
            for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
                struct stat other {};
                openings += ::stat(entry.path().c_str(), &other) == 0 && other.st_ino == mine.st_ino ? 1 : 0;
            }
        }
    }
    void append(std::string_view bytes) const {
        EXPECT_EQ(::write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void release() {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

TEST(FileIO, FollowsAFileThatIsReplacedWhileItsLockIsWaitedFor) {
    TemporaryFolder folder;
    PosixFileIO files;
    const std::string path = folder.file("journal");
    for (const bool rewrites : {false, true}) {
        ASSERT_TRUE(files.writeAtomic(path, "old\n", std::nullopt));
        Rival old(path);
        std::atomic<bool> isOver = false;
        std::thread writer([&] {
            const auto written = rewrites ? files.rewrite(
                                     path, [](std::string bytes) { return bytes + "mine\n"; }, std::nullopt)
                                          : files.append(path, "mine\n", {});
            EXPECT_TRUE(written);
            isOver = true;
        });
        old.waitForAnother(isOver);
        EXPECT_TRUE(files.writeAtomic(path, "new\n", std::nullopt));
        Rival present(path);
        old.release();
        present.waitForAnother(isOver);
        present.append("more\n");
        present.release();
        writer.join();
        EXPECT_EQ(files.read(path).value(), "new\nmore\nmine\n") << rewrites;
    }
}

// A disk that takes only a part: here a file that may not grow beyond a limit.
TEST(FileIO, APartialWriteLeavesNoTrace) {
    TemporaryFolder folder;
    PosixFileIO files;
    const std::string path = folder.file("log");
    ASSERT_TRUE(files.append(path, "whole line\n"));
    struct rlimit before {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit little { 4096, before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
    const auto appended = files.append(path, std::string(10'000, 'x'));
    const auto written = files.writeAtomic(path, std::string(10'000, 'x'), std::nullopt);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    ASSERT_FALSE(appended);
    ASSERT_FALSE(written);
    EXPECT_EQ(appended.error().code, EFBIG);
    EXPECT_EQ(files.read(path).value(), "whole line\n");
    EXPECT_EQ(files.list(folder.path()).value(), std::vector<std::string>{"log"}) << "nothing left over";
}

TEST(FileIO, MakesEveryFolderPrivateOnTheWay) {
    TemporaryFolder folder;
    PosixFileIO files;
    ASSERT_TRUE(files.createFolders(folder.file("a/b/c"), privateFolderMode));
    for (const char* made : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(folder.file(made)), privateFolderMode) << made;
}

TEST(ProgramSession, KnowsWhichProgramsRun) {
    TemporaryFolder folder;
    const std::string path = folder.file("programs");
    const std::uint64_t numbers[] = {1, 2, 1000, std::numeric_limits<std::uint64_t>::max() / 2 - 3};
    for (const std::uint64_t number : numbers) {
        auto session = std::make_unique<ProgramSession>(path, number);
        const ProgramSession other(path, 77);
        EXPECT_TRUE(session->isAlive(number)) << "itself";
        EXPECT_TRUE(other.isAlive(number));
        EXPECT_TRUE(session->isAlive(77));
        for (const std::uint64_t nobody : {number - 1, number + 1, std::uint64_t{0}, std::uint64_t{78}})
            EXPECT_FALSE(other.isAlive(nobody)) << number << " " << nobody;
        session.reset();
        EXPECT_FALSE(other.isAlive(number)) << "it has ended";
    }
}

TEST(UserDefaults, AValueOfTheWrongTypeCountsAsMissing) {
    TemporaryFolder folder;
    PosixFileIO files;
    ASSERT_TRUE(files.writeAtomic(folder.file("d.json"),
                                  R"({"t":"x","b":true,"i":3,"n":2.5,"a":["p","q"],"mixed":["p",1],"z":null,
                                      "huge":18446744073709551615})",
                                  std::nullopt));
    UserDefaults defaults(files, folder.file("d.json"));
    EXPECT_FALSE(defaults.load());
    EXPECT_EQ(defaults.string("t"), "x");
    EXPECT_EQ(defaults.boolean("b"), true);
    EXPECT_EQ(defaults.integer("i"), 3);
    EXPECT_EQ(defaults.number("i"), 3.0);
    EXPECT_EQ(defaults.strings("a"), (std::vector<std::string>{"p", "q"}));
    for (const char* key : {"b", "i", "a", "z", "absent"}) EXPECT_FALSE(defaults.string(key)) << key;
    for (const char* key : {"t", "i", "n"}) EXPECT_FALSE(defaults.boolean(key)) << key;
    for (const char* key : {"t", "b", "n", "huge"}) EXPECT_FALSE(defaults.integer(key)) << key;
    EXPECT_FALSE(defaults.strings("mixed"));
}

TEST(UserDefaults, KeepsADamagedFileAsideAndOtherProgramsChanges) {
    TemporaryFolder folder;
    PosixFileIO files;
    const std::string path = folder.file("d.json");
    ASSERT_TRUE(files.writeAtomic(path, "{\"half\": ", std::nullopt));
    UserDefaults one(files, path);
    const auto problem = one.load();
    ASSERT_TRUE(problem);
    EXPECT_NE(problem->find("d.json.damaged"), std::string::npos);
    EXPECT_EQ(files.read(path + ".damaged").value(), "{\"half\": ");

    UserDefaults two(files, path);
    two.load();
    ASSERT_TRUE(one.set("a", "1"));
    ASSERT_TRUE(two.set("b", std::int64_t{2}));
    one.load();
    EXPECT_EQ(one.string("a"), "1");
    EXPECT_EQ(one.integer("b"), 2);
    EXPECT_EQ(modeOf(path), privateFileMode);
}

TEST(Paths, FollowTheUsersOwnFolders) {
    TemporaryFolder folder;
    PosixFileIO files;
    const std::string config = folder.file("config");
    ASSERT_TRUE(files.createFolders(config, std::nullopt));
    ASSERT_TRUE(files.writeAtomic(config + "/user-dirs.dirs",
                                  "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\nXDG_DOWNLOAD_DIR=\"relative\"\n",
                                  std::nullopt));
    ::unsetenv("SNIPWREN_HOME");
    ::setenv("HOME", folder.path().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    ::setenv("XDG_DATA_HOME", "not/absolute", 1);
    const Paths paths = Paths::fromEnvironment(files);
    EXPECT_EQ(paths.documents, folder.file("Dokumente"));
    EXPECT_EQ(paths.downloads, folder.file("Downloads"));
    EXPECT_EQ(paths.applicationSupport, folder.file(".local/share/com.snipwren.app"));
}

TEST(FileLog, IsOwnerOnly) {
    TemporaryFolder folder;
    const std::string path = folder.file("state/snipwren.log");
    { FileLog(path).line("a line {} with braces"); }
    EXPECT_EQ(modeOf(path), privateFileMode);
    EXPECT_NE(PosixFileIO().read(path).value().find("a line {} with braces\n"), std::string::npos);
}
} // namespace
} // namespace snipwren
