#include "capture/CaptureTransition.h"

#include <set>

#include <gtest/gtest.h>

namespace snipwren {
namespace {
using enum CaptureEvent;
using Phase = CapturePhase;

constexpr Phase phases[] = {Phase::idle,       Phase::stripping, Phase::opening,    Phase::capturing,
                            Phase::confirming, Phase::closing,   Phase::dismissing, Phase::returning};
constexpr CaptureEvent events[] = {triggered, notReady,  placed,   keyboardTaken,    committed, confirmed,
                                   refused,   cancelled, keysHeld, keyboardReturned, keysGiven, timedOut};

KeyEvent letter(std::string_view characters) {
    KeyEvent event;
    event.keyCode = 0;
    event.characters = characters;
    return event;
}

TEST(CaptureTransition, WalksTheWholeRoad) {
    CaptureTransition transition;
    const std::pair<CaptureEvent, Phase> road[] = {{triggered, Phase::stripping},        {placed, Phase::opening},
                                                   {keyboardTaken, Phase::capturing},    {committed, Phase::confirming},
                                                   {confirmed, Phase::closing},          {keysHeld, Phase::dismissing},
                                                   {keyboardReturned, Phase::returning}, {keysGiven, Phase::idle}};
    for (const auto& [event, phase] : road) {
        EXPECT_TRUE(transition.handle(event));
        EXPECT_EQ(transition.phase(), phase);
        const bool keeps = phase != Phase::idle && phase != Phase::capturing;
        EXPECT_EQ(transition.isActive(), keeps) << static_cast<int>(phase);
        EXPECT_EQ(transition.keep(letter("x")), keeps) << static_cast<int>(phase);
    }
    EXPECT_EQ(transition.generation(), 1U);
}

// No phase may be a trap: from each there is a way back to idle by what comes without anybody's help (time, answers of the
// overlay and of the disk).
TEST(CaptureTransition, EveryPhaseEnds) {
    for (const Phase start : phases) {
        std::set<Phase> reached{start};
        for (std::size_t before = 0; before != reached.size();) {
            before = reached.size();
            for (const Phase phase : std::set<Phase>(reached))
                for (const CaptureEvent event : {cancelled, refused, timedOut, keyboardReturned, keysGiven})
                    if (const auto next = CaptureTransition::next(phase, event)) reached.insert(*next);
        }
        EXPECT_TRUE(reached.count(Phase::idle)) << static_cast<int>(start);
    }
}

TEST(CaptureTransition, WhatAPhaseDoesNotKnowChangesNothing) {
    const std::set<std::pair<Phase, CaptureEvent>> known = {
        {Phase::idle, triggered},        {Phase::stripping, placed},
        {Phase::stripping, notReady},    {Phase::stripping, timedOut},
        {Phase::opening, keyboardTaken}, {Phase::opening, timedOut},
        {Phase::opening, committed},     {Phase::opening, cancelled},
        {Phase::capturing, committed},   {Phase::capturing, cancelled},
        {Phase::confirming, confirmed},  {Phase::confirming, refused},
        {Phase::confirming, cancelled},  {Phase::closing, keysHeld},
        {Phase::closing, timedOut},      {Phase::dismissing, keyboardReturned},
        {Phase::dismissing, timedOut},   {Phase::returning, keysGiven},
        {Phase::returning, triggered}};
    for (const Phase phase : phases)
        for (const CaptureEvent event : events)
            EXPECT_EQ(CaptureTransition::next(phase, event).has_value(), known.count({phase, event}) == 1)
                << static_cast<int>(phase) << " " << static_cast<int>(event);
}

// Whatever the table says: no key is left behind, the overlay is never taken away before the tap has the keys, and Escape
// and Return do what they say.
TEST(CaptureTransition, TakesNoShortcut) {
    const std::set<Phase> shown{Phase::opening, Phase::capturing, Phase::confirming, Phase::closing};
    for (const Phase phase : phases) {
        for (const CaptureEvent event : events) {
            const auto next = CaptureTransition::next(phase, event);
            if (!next) continue;
            const std::string row =
                std::to_string(static_cast<int>(phase)) + " " + std::to_string(static_cast<int>(event));
            if (*next == Phase::idle) {
                EXPECT_EQ(event, keysGiven) << row << ": kept keys are lost";
            }
            if (shown.count(phase)) {
                EXPECT_TRUE(shown.count(*next) || (phase == Phase::closing && *next == Phase::dismissing)) << row;
            }
            if (event == cancelled) {
                EXPECT_EQ(*next, Phase::closing) << row;
            }
            if (event == committed) {
                EXPECT_EQ(*next, Phase::confirming) << row;
            }
            if (event == refused) {
                EXPECT_EQ(*next, Phase::capturing) << row << ": the overlay has the keyboard still";
            }
            if (event == triggered) {
                EXPECT_EQ(*next, Phase::stripping) << row;
            }
            EXPECT_NE(*next, phase) << row << ": it would be waited for again";
        }
    }
}

TEST(CaptureTransition, EveryWalkHasItsOwnNumberAndItsOwnKeys) {
    CaptureTransition transition;
    transition.handle(triggered);
    transition.handle(notReady);
    transition.keep(letter("old"));
    transition.handle(triggered); // Among the kept keys.
    EXPECT_EQ(transition.generation(), 2U);
    transition.handle(timedOut);
    transition.handle(keysGiven);
    transition.handle(triggered);
    EXPECT_EQ(transition.generation(), 3U);
    EXPECT_TRUE(transition.takeKeys().empty()) << "of an earlier walk";
}

TEST(CaptureTransition, KeepsWholeKeysUpToALimit) {
    CaptureTransition transition;
    transition.handle(triggered);
    KeyEvent shortcut = letter("v");
    shortcut.modifiers.control = true;
    for (std::size_t i = 0; i < CaptureTransition::maxKeptKeys + 10; ++i) EXPECT_TRUE(transition.keep(shortcut));
    const auto kept = transition.takeKeys();
    EXPECT_EQ(kept.size(), CaptureTransition::maxKeptKeys);
    EXPECT_EQ(kept.front().modifiers, shortcut.modifiers);
}

TEST(CaptureTransition, ALateAnswerToAnEarlierWalkDoesNothing) {
    CaptureTransition transition;
    transition.handle(triggered);
    const auto first = transition.generation();
    transition.handle(timedOut);
    transition.handle(keysGiven);
    transition.handle(triggered);
    EXPECT_FALSE(transition.handle(placed, first));
    EXPECT_EQ(transition.phase(), Phase::stripping);
    EXPECT_TRUE(transition.handle(placed, transition.generation()));
}

TEST(CaptureTransition, EndsOnlyWhenNothingWasKeptSince) {
    CaptureTransition transition;
    transition.handle(triggered);
    transition.keep(letter("a"));
    transition.handle(notReady);
    transition.keep(letter("b"));
    EXPECT_FALSE(transition.handleIfNothingKept(keysGiven));
    const auto kept = transition.takeKeys();
    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0].characters + kept[1].characters, "ab");
    EXPECT_TRUE(transition.handleIfNothingKept(keysGiven));
    EXPECT_FALSE(transition.keep(letter("c"))) << "it goes its way again";
    EXPECT_TRUE(transition.takeKeys().empty());
}
} // namespace
} // namespace snipwren
