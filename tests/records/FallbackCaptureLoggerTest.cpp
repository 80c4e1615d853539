#include "records/FallbackCaptureLogger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "support/FaultyFileIO.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
class FallbackCaptureLoggerTest : public testing::Test {
protected:
    unsigned mode(const std::string& path) const {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777u : 0;
    }
    std::string content() { return files.read(logger.logFilePath()).value_or(""); }
    void write(const std::string& bytes) {
        ASSERT_TRUE(plain().createFolders(paths.applicationSupport));
        ASSERT_TRUE(plain().writeAtomic(logger.logFilePath(), bytes));
    }
    FileIO& plain() { return real; }

    TemporaryFolder folder;
    PosixFileIO real;
    FaultyFileIO files;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{*parsedIsoUtc("2025-03-04T09:15:02Z")};
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    FallbackCaptureLogger logger{files, paths, clock, notifications};
};

TEST_F(FallbackCaptureLoggerTest, WritesTheDocumentedLine) {
    EXPECT_TRUE(logger.saveFallback(" call Ana \"re: Q2\"\nsecond line \n", "slack", "Slack not connected"));
    EXPECT_EQ(content(), "[2025-03-04T09:15:02Z] target=slack error=\"Slack not connected\" "
                         "text=\"call Ana \\\"re: Q2\\\"\\nsecond line\"\n");
    EXPECT_EQ(mode(logger.logFilePath()), 0600u);
    EXPECT_EQ(mode(paths.applicationSupport), 0700u);
    EXPECT_TRUE(files.wasFlushed) << "nobody else has the text any more";
}

TEST_F(FallbackCaptureLoggerTest, BringsBackEveryText) {
    const char* const texts[] = {"back\\slash \"quote\"\nand line",
                                 "\\",
                                 "\\\\n",
                                 "\\n",
                                 "ends in \\\"",
                                 "tab\there\r!",
                                 "text=\" error=\" target=",
                                 "] [2025-03-04T09:15:02Z]",
                                 "\xF0\x9F\x98\x80 caf\xC3\xA9"};
    for (const char* text : texts) ASSERT_TRUE(logger.saveFallback(text, "note", text)) << text;
    const auto entries = logger.readEntries();
    ASSERT_EQ(entries.size(), std::size(texts));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto& entry = entries[entries.size() - 1 - i];
        EXPECT_EQ(entry.text, texts[i]);
        EXPECT_EQ(entry.errorDescription, texts[i]);
        EXPECT_EQ(entry.target, "note");
        EXPECT_EQ(entry.timestamp, clock.now());
        EXPECT_EQ(entry.id, "2025-03-04T09:15:02Z#" + std::to_string(i)) << "same second, different line";
    }
}

TEST_F(FallbackCaptureLoggerTest, InvalidBytesAreReplacedNotLost) {
    ASSERT_TRUE(logger.saveFallback("caf\xE9 \xFF", "note", "e"));
    ASSERT_EQ(logger.readEntries().size(), 1u);
    EXPECT_EQ(logger.readEntries()[0].text, "caf\xEF\xBF\xBD \xEF\xBF\xBD");
}

TEST_F(FallbackCaptureLoggerTest, TellsOnceAfterEveryWriteAndClear) {
    int told = 0;
    const auto subscription =
        notifications.observe(FallbackCaptureLogger::logChangedNotification, [&](const UserInfo&) { ++told; });
    EXPECT_FALSE(logger.saveFallback(" \n\t ", "note", "e"));
    mainQueue.runReady();
    EXPECT_EQ(told, 0);
    EXPECT_FALSE(files.exists(logger.logFilePath()));
    EXPECT_TRUE(logger.saveFallback("x", "note", "e"));
    EXPECT_EQ(told, 0) << "on the main queue, later";
    EXPECT_TRUE(logger.clearLog());
    mainQueue.runReady();
    EXPECT_EQ(told, 2);
    EXPECT_TRUE(logger.readEntries().empty());
    EXPECT_EQ(*files.size(logger.logFilePath()), 0u);
    EXPECT_EQ(mode(logger.logFilePath()), 0600u);
}

TEST_F(FallbackCaptureLoggerTest, ReadsTheNewestAndSkipsWhatIsNoRecord) {
    std::string lines;
    for (int i = 0; i < 600; ++i)
        lines += FallbackCaptureLogger::recordLine("t" + std::to_string(i), "note", "e", clock.now());
    write(lines);
    EXPECT_EQ(logger.readEntries().size(), 500u);
    EXPECT_EQ(logger.readEntries().front().text, "t599");
    EXPECT_EQ(logger.readEntries().back().text, "t100");
    ASSERT_EQ(logger.readEntries(1).size(), 1u);
    EXPECT_TRUE(logger.readEntries(0).empty());

    const std::string start = "[2025-03-04T09:15:02Z] ";
    const std::string rejected[] = {"",
                                    "no bracket",
                                    "[2025-02-30T09:15:02Z] target=a error=\"e\" text=\"t\"",
                                    "[2025-03-04T09:15:02.5Z] target=a error=\"e\" text=\"t\"",
                                    "[2025-03-04 09:15:02Z] target=a error=\"e\" text=\"t\"",
                                    "[2025-03-04T09:15:02Z target=a error=\"e\" text=\"t\"",
                                    start + "error=\"e\" text=\"t\"",
                                    start + "target= error=\"e\" text=\"t\"",
                                    start + "target=a error=e text=\"t\"",
                                    start + "target=a error=\"e\\\" text=\"t\"",
                                    start + "target=a error=\"e\" text=\"t\\\"",
                                    start + "target=a error=\"e\" text=\"t"};
    for (const std::string& line : rejected) EXPECT_FALSE(FallbackCaptureLogger::parseLine(line, 0)) << line;
    write("half a li\xC3\n\n" + lines.substr(0, lines.find('\n') + 1) + "\xFF\xFE\n  " + start
          + "\ttarget=  a b  error=\"\" text=\"\\q\\\" and more\n");
    EXPECT_EQ(logger.readEntries().size(), 1u) << "the last one's quote never closes";
    EXPECT_EQ(logger.readEntries()[0].id, "2025-03-04T09:15:02Z#2");
    const auto odd = FallbackCaptureLogger::parseLine(" " + start + "x target=  a b  error=\"\" text=\"\\q\" rest ", 7);
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->target, "a b");
    EXPECT_EQ(odd->errorDescription, "");
    EXPECT_EQ(odd->text, "q") << "an unknown escape drops its backslash";
    EXPECT_EQ(odd->rawLine, start + "x target=  a b  error=\"\" text=\"\\q\" rest");
}

TEST_F(FallbackCaptureLoggerTest, AHalfWrittenLineDoesNotSwallowTheNext) {
    write("[2025-03-04T09:15:02Z] target=note error=\"e\" text=\"cut of");
    ::chmod(logger.logFilePath().c_str(), 0644);
    ASSERT_TRUE(logger.saveFallback("whole", "note", "e"));
    ASSERT_EQ(logger.readEntries().size(), 1u);
    EXPECT_EQ(logger.readEntries()[0].text, "whole");
    EXPECT_EQ(mode(logger.logFilePath()), 0600u);
}

TEST_F(FallbackCaptureLoggerTest, AFileThatCannotBeOpenedIsTakenOver) {
    ASSERT_TRUE(logger.saveFallback("first", "note", "e"));
    files.operations = 0;
    files.failAt = 3; // Folders, mode, append.
    files.code = EACCES;
    ASSERT_TRUE(logger.saveFallback("second", "note", "e"));
    ASSERT_EQ(logger.readEntries().size(), 2u);
    EXPECT_EQ(logger.readEntries()[1].text, "first");
    EXPECT_EQ(mode(logger.logFilePath()), 0600u);
}

TEST_F(FallbackCaptureLoggerTest, AFolderInItsPlaceIsMovedAside) {
    for (const char* aside : {".unreadable", ".unreadable-2", ".unreadable-3"}) { // None takes the place of another.
        ASSERT_TRUE(plain().remove(logger.logFilePath()));
        ASSERT_TRUE(plain().createFolders(joinedPath(logger.logFilePath(), std::string("inside") + aside)));
        ASSERT_TRUE(logger.saveFallback("text", "note", "e"));
        EXPECT_EQ(logger.readEntries().size(), 1u);
        EXPECT_TRUE(files.isFolder(joinedPath(logger.logFilePath() + aside, std::string("inside") + aside)));
    }
}

TEST_F(FallbackCaptureLoggerTest, AFullDiskStillTakesTheNextCapture) {
    logger.prepare();
    const std::string reserve = joinedPath(paths.applicationSupport, "fallback_captures.reserve");
    EXPECT_EQ(*files.size(reserve), FallbackCaptureLogger::reserveSize);
    EXPECT_EQ(mode(reserve), 0600u);
    files.operations = 0;
    files.failAt = 3;
    files.code = ENOSPC;
    EXPECT_TRUE(logger.saveFallback("text", "note", "e"));
    EXPECT_FALSE(files.exists(reserve)) << "its room was given up for the text";
    EXPECT_EQ(logger.readEntries().size(), 1u);
    files.operations = 0;
    EXPECT_FALSE(logger.saveFallback("no room left", "note", "e"));
    EXPECT_EQ(logger.readEntries().size(), 1u);
}

TEST_F(FallbackCaptureLoggerTest, WhateverFailsEarlierRecordsStayAndTheAnswerIsTrue) {
    ASSERT_TRUE(logger.saveFallback("first", "note", "e"));
    std::size_t kept = 1;
    for (const int code : {EIO, ENOSPC, EACCES, EROFS, EPERM, EISDIR}) {
        for (const bool all : {false, true}) {
            for (int n = 1; n <= 6; ++n) {
                files.operations = 0;
                files.failAt = n;
                files.failAllFromThen = all;
                files.code = code;
                const bool saved = logger.saveFallback("again", "note", "e");
                files.failAt = 0;
                kept += saved;
                const auto entries = logger.readEntries();
                ASSERT_EQ(entries.size(), kept) << "operation " << n << ", code " << code << ", saved " << saved;
                ASSERT_EQ(entries.back().text, "first");
                ASSERT_EQ(mode(logger.logFilePath()), 0600u);
            }
        }
    }
}
} // namespace
} // namespace snipwren
