#include "hosts/portable/DesktopOpener.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/FileIO.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
TEST(DesktopOpener, BelievesTheOpenersExitStatus) {
    const TemporaryFolder folder;
    PosixFileIO files;
    const auto script = [&](const std::string& name, const std::string& body) {
        EXPECT_TRUE(files.writeAtomic(folder.file(name), "#!/bin/sh\n" + body + "\n", 0700));
        return folder.file(name);
    };
    DesktopOpener good(script("good", "printf '%s|' \"$#\" \"$1\" > " + folder.file("seen")));
    EXPECT_TRUE(good.open("/tmp/a file; rm -rf $HOME"));
    EXPECT_EQ(files.read(folder.file("seen")), "1|/tmp/a file; rm -rf $HOME|");
    EXPECT_FALSE(good.open("--help"));
    EXPECT_FALSE(DesktopOpener(script("bad", "exit 4")).open("/tmp/x"));
    EXPECT_FALSE(DesktopOpener(folder.file("missing")).open("/tmp/x"));
}
} // namespace
} // namespace snipwren
