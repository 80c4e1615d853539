// A capture, and the end of a command, while another program keeps the database locked and does not let go.
#include <sstream>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "app/Environment.h"
#include "cli/CommandLine.h"
#include "store/DatabaseManager.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
struct LockedDatabase : testing::Test {
    TemporaryFolder folder;
    Paths paths = Paths::under(folder.path());
    std::string out, err;

    int run(std::vector<const char*> words) {
        words.insert(words.begin(), "snipwren");
        Environment environment(paths);
        environment.loadDefaults();
        std::istringstream in;
        std::ostringstream outStream, errStream;
        const int status =
            runCommandLine(static_cast<int>(words.size()), words.data(), in, outStream, errStream, environment);
        out = outStream.str();
        err = errStream.str();
        return status;
    }
};

TEST_F(LockedDatabase, ACaptureArrivesAndTheHistoryCatchesUp) {
    ASSERT_EQ(run({"capture", "note", "before"}), 0) << err;
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((paths.applicationSupport + "/" + DatabaseManager::fileName).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE;", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_EQ(run({"capture", "note", "while locked"}), 0) << err;
    EXPECT_NE(PosixFileIO().read(paths.documents + "/Snipwren/Quick Capture.md")->find("while locked"),
              std::string::npos);
    ASSERT_EQ(sqlite3_exec(other, "ROLLBACK;", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);
    ASSERT_EQ(run({"capture", "note", "after"}), 0) << err;
    ASSERT_EQ(run({"history"}), 0) << err;
    for (const char* text : {"before", "while locked", "after"})
        EXPECT_EQ(out.find(text), out.rfind(text)) << text << " stands there once:\n" << out;
    EXPECT_NE(out.find("while locked"), std::string::npos) << out;
}
} // namespace
} // namespace snipwren
