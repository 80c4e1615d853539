#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "targets/CaptureTargetHints.h"
#include "targets/TargetsRig.h"

namespace snipwren {
namespace {
struct TargetRegistry : testing::Test, TargetsRig {};

TEST_F(TargetRegistry, EveryTargetsWordsAreFoundByItsExactName) {
    EXPECT_EQ(targets.commandWords(), (std::vector<std::string>{"note", "reminders", "copy", "timer", "calc", "alarm",
                                                                "calendar", "obsidian", "slack", "logseq"}));
    for (const auto& target : targets) {
        const auto banner = CaptureTargetHints::banner(target->commandName());
        ASSERT_TRUE(banner && target->hint()) << target->commandName();
        EXPECT_EQ(banner->title, target->hint()->title);
        EXPECT_EQ(CaptureTargetHints::placeholder(target->commandName()), target->hint()->placeholder);
    }
    EXPECT_FALSE(CaptureTargetHints::banner("Note"));
    EXPECT_EQ(CaptureTargetHints::placeholder("Note"), "Type message to capture...");
    EXPECT_EQ(CaptureTargetHints::placeholder("slack"), "deployment is live!");
    EXPECT_EQ(CaptureTargetHints::placeholder("slack", true), "Filter target by typing (#channel or @user)...");
    EXPECT_EQ(CaptureTargetHints::placeholder("timer", true), "25m focus");
}

TEST_F(TargetRegistry, NoLogLineHoldsAPersonsWords) {
    const std::pair<const char*, const char*> captures[] = {{"note", "xylophone"},
                                                            {"reminders", "xylophone tomorrow 8am"},
                                                            {"copy", "xylophone"},
                                                            {"timer", "25m xylophone"},
                                                            {"calc", "123456+1"},
                                                            {"alarm", "7:30am xylophone"},
                                                            {"calendar", "xylophone tomorrow 2pm"},
                                                            {"obsidian", "xylophone"},
                                                            {"slack", "xylophone"},
                                                            {"logseq", "xylophone"}};
    store.setUp({.ringsAlarms = false, .saveError = {}});
    for (const auto& [word, text] : captures) {
        CaptureTarget& target = *targets.find(word);
        const auto before = log.lines().size();
        const auto sent = send(target, text);
        ASSERT_TRUE(sent) << word << ": " << sent.error().description;
        EXPECT_GT(log.lines().size(), before) << word;
        if (!sent->undo.empty()) undo(target, text, sent->undo);
    }
    for (const std::string& line : log.lines())
        for (const char* words : {"xylophone", "123456", "123457", "xoxp"})
            EXPECT_EQ(line.find(words), std::string::npos) << line;
}

TEST_F(TargetRegistry, AStoppedSendDoesNothing) {
    for (const auto& target : targets) {
        if (target->needsPicker()) continue; // Its request ends by itself.
        FakeAttempt attempt(clock.now());
        attempt.requestStop();
        EXPECT_FALSE(send(*target, target->commandName() == "calc" ? "1+1" : "25m tomorrow 8am", attempt))
            << target->commandName();
        EXPECT_TRUE(attempt.notes.empty());
    }
    EXPECT_TRUE(store.reminders().empty() && store.events().empty() && center.pending()->empty());
    EXPECT_FALSE(pasteboard.string());
    EXPECT_FALSE(files.exists(paths.documents));
}

TEST_F(TargetRegistry, WhatAnEndedProgramLeftIsDeliveredWhereItStillMakesSense) {
    const std::string never[] = {"copy", "calc"};
    for (const auto& target : targets) {
        const bool isNever = std::find(std::begin(never), std::end(never), target->commandName()) != std::end(never);
        EXPECT_EQ(target->deliversAfter(std::chrono::minutes(5)), !isNever) << target->commandName();
        EXPECT_EQ(target->deliversAfter(std::chrono::hours(48)), !isNever && !target->needsPicker())
            << target->commandName();
    }
}
} // namespace
} // namespace snipwren
