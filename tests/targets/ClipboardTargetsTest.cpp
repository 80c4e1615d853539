#include <thread>

#include <gtest/gtest.h>

#include "parsing/calculation/CalcExpressionEvaluator.h"
#include "targets/TargetsRig.h"

namespace snipwren {
namespace {
struct ClipboardTargets : testing::Test, TargetsRig {
    CaptureTarget& copy = *targets.find("copy");
    CaptureTarget& calc = *targets.find("calc");
};

TEST_F(ClipboardTargets, ACalculationIsCopied) {
    pasteboard.setString("before");
    EXPECT_EQ(send(calc, "2x3").error().description, std::string(message(CalcExpressionError::invalidExpression)));
    EXPECT_EQ(pasteboard.string(), "before") << "nothing is copied when the evaluation fails";
    const auto sent = send(calc, " 15% of 847 ");
    ASSERT_TRUE(sent);
    EXPECT_EQ(*sent, (CaptureReceipt{"= 127.05", std::nullopt, "function", false, {}}));
    EXPECT_EQ(pasteboard.string(), "127.05");
    EXPECT_EQ(log.lines().back(), "🧮 CalcTarget: Evaluated '(10 characters)' -> (6 characters)");
    pasteboard.setRefuses(true);
    EXPECT_EQ(send(calc, "1+1").error().description, "Failed to write to the clipboard.");
}

TEST_F(ClipboardTargets, UndoGivesBackWhatTheLastCopyReplaced) {
    const std::string emptied = "The clipboard was emptied.",
                      restored = "The clipboard holds again what it held before.";
    const std::string changed =
        "The clipboard holds something else by now, so it was left as it is. Copy what you need "
        "again.";
    EXPECT_EQ(*send(copy, " \n"), CaptureReceipt());
    pasteboard.setString("a password");
    const auto first = send(copy, " one\n");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->sentence, "Copied");
    EXPECT_EQ(log.lines().back(), "📝 ClipboardTarget: Successfully copied text to NSPasteboard: '(3 characters)'");
    EXPECT_EQ(pasteboard.string(), "one");
    EXPECT_EQ(undo(copy, " one\n", first->undo), restored);
    EXPECT_EQ(pasteboard.string(), "a password");
    EXPECT_EQ(undo(copy, "one", first->undo), changed) << "twice";

    const auto second = send(copy, "two"), third = send(copy, "three");
    EXPECT_EQ(undo(copy, "two", second->undo), changed);
    EXPECT_EQ(undo(copy, "three", third->undo), restored);
    EXPECT_EQ(pasteboard.string(), "two");
    EXPECT_EQ(undo(copy, "two", second->undo), emptied) << "only the last one's is remembered";
    EXPECT_EQ(pasteboard.string(), std::nullopt);

    const auto last = send(copy, "four");
    pasteboard.setString("of another program");
    EXPECT_EQ(undo(copy, "four", last->undo), changed);
    EXPECT_EQ(pasteboard.string(), "of another program");
    for (const auto& receipt : {first, second, third, last})
        EXPECT_EQ(receipt->undo.find("password"), std::string::npos);
}

TEST_F(ClipboardTargets, AProgramThatEndsNeverWaitsForTheClipboard) {
    // Nobody runs the main queue any more.
    for (CaptureTarget* target : {&copy, &calc}) {
        FakeAttempt attempt(clock.now());
        std::jthread ending([&] { attempt.requestStop(); });
        EXPECT_FALSE(target->send("1+1", std::nullopt, attempt)) << target->commandName();
    }
    mainQueue.runReady();
    EXPECT_FALSE(pasteboard.string()) << "what was given up is not done later";
}
} // namespace
} // namespace snipwren
