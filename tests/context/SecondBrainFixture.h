#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualClock.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/UserDefaults.h"
#include "context/graph/KnowledgeSuggestionEngine.h"
#include "context/notes/SecondBrainIndexer.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
/// An index in a temporary home, on queues that are run by hand.
class SecondBrainFixture : public testing::Test {
protected:
    void write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(folder_.file(name)).parent_path());
        std::ofstream(folder_.file(name), std::ios::binary) << text;
    }
    SecondBrainIndexer::Dependencies dependencies() {
        return {files_, paths_, defaults_, clock_, databaseQueue_, rebuildQueue_, mainQueue_, log_, 2};
    }
    /// Runs the started rebuild and what it publishes.
    void settle() {
        while (rebuildQueue_.runReady() + mainQueue_.runReady() > 0) {}
    }
    void rebuild() {
        const auto done = indexer_.rebuildIndex({});
        ASSERT_TRUE(done) << done.error();
    }
    std::vector<std::string> paths(const std::string& query) {
        std::vector<std::string> found;
        for (const KnowledgeSuggestionModel& model : engine_.find(query, 50))
            found.push_back(std::filesystem::path(model.filePath).lexically_relative(folder_.path()).string());
        std::sort(found.begin(), found.end());
        return found;
    }
    bool logHas(const std::string& piece) const {
        for (const std::string& line : log_.lines())
            if (line.find(piece) != std::string::npos) return true;
        return false;
    }
    using Names = std::vector<std::string>;

    TemporaryFolder folder_;
    PosixFileIO files_;
    Paths paths_ = Paths::under(folder_.file("home"));
    UserDefaults defaults_{files_, folder_.file("defaults.json")};
    ManualClock clock_{fromSecondsSince1970(1'800'000'000)};
    ManualQueue databaseQueue_{SecondBrainIndexer::queueLabel, clock_};
    ManualQueue rebuildQueue_{SecondBrainIndexer::rebuildQueueLabel, clock_};
    ManualQueue mainQueue_{"main", clock_};
    MemoryLog log_;
    SystemRandom random_;
    SecondBrainIndexer indexer_{dependencies()};
    KnowledgeSuggestionEngine engine_{indexer_, random_};
};
} // namespace snipwren
