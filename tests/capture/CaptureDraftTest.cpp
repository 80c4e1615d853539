#include "capture/CaptureDraft.h"

#include <gtest/gtest.h>

#include "base/ManualQueue.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
struct CaptureDraftTest : testing::Test {
    std::vector<std::string> recovered(bool isKept = true) {
        std::vector<std::string> found;
        CaptureDraft(files, path, queue).recover([&](const std::string& text, const std::string& command) {
            found.push_back(command + ": " + text);
            return isKept;
        });
        return found;
    }
    ManualClock clock{fromSecondsSince1970(1'700'000'000)};
    ManualQueue queue{"draft", clock};
    PosixFileIO files;
    TemporaryFolder folder;
    const std::string path = folder.file("draft");
};

TEST_F(CaptureDraftTest, WhatAKilledProgramLeftIsHandedOverOnceItIsSafeElsewhere) {
    EXPECT_TRUE(recovered().empty());
    // Never destroyed in order, as a killed program's is not.
    auto* const draft = new CaptureDraft(files, path, queue);
    draft->hold("note", "half");
    draft->hold("note", "half a\nthought");
    queue.runReady();
    EXPECT_EQ(recovered(false), std::vector<std::string>{"note: half a\nthought"});
    EXPECT_EQ(recovered(), std::vector<std::string>{"note: half a\nthought"});
    EXPECT_TRUE(recovered().empty());
    delete draft;
}

TEST_F(CaptureDraftTest, ACaptureThatEndedLeavesNothing) {
    CaptureDraft draft(files, path, queue);
    draft.hold("note", "buy milk");
    queue.runReady();
    draft.discard();
    draft.hold("copy", "x");
    draft.discard();
    queue.runReady();
    EXPECT_FALSE(files.exists(path));
}
} // namespace
} // namespace snipwren
