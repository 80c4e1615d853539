#include <gtest/gtest.h>

#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "records/FallbackCaptureLogger.h"
#include "support/FakeAttempt.h"
#include "support/FaultyFileIO.h"
#include "support/TemporaryFolder.h"
#include "targets/LocalNoteTarget.h"

namespace snipwren {
namespace {
// What the router does with a capture: send it, and keep the text when that fails.
TEST(CaptureFaults, WhateverFileOperationFailsTheTextIsDeliveredOrRecorded) {
    const TemporaryFolder folder(TemporaryFolder::inMemory());
    const Paths paths = Paths::under(folder.path());
    FaultyFileIO files;
    ManualClock clock(*parsedIsoUtc("2025-03-04T09:15:02Z"));
    ManualQueue mainQueue("main", clock);
    NotificationCenter notifications(mainQueue);
    MemoryLog log;
    const Calendar calendar = *Calendar::make("UTC", "en_US");
    LocalNoteTarget note({files, paths, calendar, log});
    FallbackCaptureLogger logger(files, paths, clock, notifications);

    const auto contains = [&](const std::string& path, const std::string& text) {
        return files.read(path).value_or("").find(text) != std::string::npos;
    };
    std::vector<std::string> delivered;
    std::vector<std::string> recorded;
    int number = 0;
    for (const int code : {EIO, ENOSPC, EACCES, EROFS}) {
        for (const bool all : {false, true}) {
            for (int n = 0;; ++n) { // 0: nothing fails.
                files.operations = 0;
                files.failAt = n;
                files.failAllFromThen = all;
                files.code = code;
                const std::string text = "capture <" + std::to_string(++number) + ">";
                FakeAttempt attempt(clock.now());
                const bool sent = note.send(text, std::nullopt, attempt).has_value();
                const bool saved = !sent && logger.saveFallback(text, "note", "failed");
                const bool reached = files.operations >= n;
                files.failAt = 0;
                const std::string where = "operation " + std::to_string(n) + ", code " + std::to_string(code);
                if (sent) delivered.push_back(text);
                if (saved) recorded.push_back(text);
                ASSERT_TRUE(sent || saved || all) << where << ": one fault costs no text";
                // When nothing can be written at all, nothing is claimed; and what was there before stays.
                for (const auto& one : delivered) ASSERT_TRUE(contains(note.captureFileURL(), one)) << where << one;
                const auto entries = logger.readEntries();
                ASSERT_EQ(entries.size(), recorded.size()) << where;
                for (std::size_t i = 0; i < recorded.size(); ++i)
                    ASSERT_EQ(entries[entries.size() - 1 - i].text, recorded[i]) << where;
                if (!reached) break;
            }
        }
    }
    EXPECT_GT(delivered.size(), 8u);
    EXPECT_GT(recorded.size(), 4u);
}
} // namespace
} // namespace snipwren
