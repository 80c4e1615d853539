#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
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
