#pragma once

#include <algorithm>

#include <gtest/gtest.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "store/DatabaseManager.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
/// A rules database in a folder of its own, its clock and queue moved by hand.
class StoreFixture : public testing::Test {
protected:
    DatabaseManager::Dependencies dependencies() {
        return {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = queue, .log = log};
    }
    bool logged(std::string_view line) const { return std::ranges::count(log.lines(), line) > 0; }
    std::string databaseFile() const { return joinedPath(paths.applicationSupport, DatabaseManager::fileName); }

    TemporaryFolder folder;
    PosixFileIO posix;
    FileIO& files = posix;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{fromSecondsSince1970(1'741'079'702)};
    ManualQueue queue{DatabaseManager::queueLabel, clock};
    UserDefaults defaults{files, paths.defaultsFile};
    MemoryLog log;
};
} // namespace snipwren
