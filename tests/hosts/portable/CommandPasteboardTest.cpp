#include "hosts/portable/CommandPasteboard.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
/// A folder with helper programs of our own making, and nothing else, on the path.
class CommandPasteboardTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"PATH", "DISPLAY", "WAYLAND_DISPLAY"})
            if (const char* value = std::getenv(name)) before[name] = value;
        ::setenv("PATH", folder.path().c_str(), 1);
        ::setenv("DISPLAY", ":77", 1);
        ::unsetenv("WAYLAND_DISPLAY");
    }
    void TearDown() override {
        for (const char* name : {"PATH", "DISPLAY", "WAYLAND_DISPLAY"})
            before.count(name) ? ::setenv(name, before[name].c_str(), 1) : ::unsetenv(name);
    }
    void helper(const std::string& name, const std::string& script) {
        ASSERT_TRUE(files.writeAtomic(folder.file(name), "#!/bin/sh\n" + script + "\n", 0700));
    }
    void takesAll(const std::string& name) { helper(name, "exec /bin/cat > " + folder.file("got-" + name)); }
    std::string gotBy(const std::string& name) { return files.read(folder.file("got-" + name)).value_or("nothing"); }

    TemporaryFolder folder;
    PosixFileIO files;
    std::map<std::string, std::string> before;
    CommandPasteboard pasteboard;
};

TEST_F(CommandPasteboardTest, AsksTheHelpersOfTheSessionOneAfterTheOther) {
    EXPECT_FALSE(pasteboard.setString("text")) << "there is none";
    takesAll("xsel");
    EXPECT_TRUE(pasteboard.setString("text"));
    EXPECT_EQ(gotBy("xsel"), "text");
    helper("xclip", "/bin/cat > /dev/null; exit 1");
    EXPECT_TRUE(pasteboard.setString("again"));
    EXPECT_EQ(gotBy("xsel"), "again") << "the first one failed";
    takesAll("wl-copy");
    EXPECT_TRUE(pasteboard.setString("x11"));
    EXPECT_EQ(gotBy("wl-copy"), "nothing") << "there is no such session";
    ::setenv("WAYLAND_DISPLAY", "wayland-0", 1);
    EXPECT_TRUE(pasteboard.setString("wayland"));
    EXPECT_EQ(gotBy("wl-copy"), "wayland");
}

TEST_F(CommandPasteboardTest, HandsOverEveryByte) {
    takesAll("xclip");
    std::string text = "\xC3\xA4\n";
    while (text.size() < 1'000'000) text += text; // More than a pipe holds.
    EXPECT_TRUE(pasteboard.setString(text));
    EXPECT_EQ(gotBy("xclip"), text);
    EXPECT_TRUE(pasteboard.setString(""));
    EXPECT_EQ(gotBy("xclip"), "");
}

TEST_F(CommandPasteboardTest, AHelperThatEndsEarlyEndsNothingElse) {
    helper("xclip", "exit 0");
    EXPECT_FALSE(pasteboard.setString(std::string(1'000'000, 'x')));
    struct sigaction now {};
    ASSERT_EQ(::sigaction(SIGPIPE, nullptr, &now), 0);
    EXPECT_EQ(now.sa_handler, SIG_DFL) << "what our own broken pipes do is as it was";
}
} // namespace
} // namespace snipwren
