#include "capture/CaptureInput.h"

#include <gtest/gtest.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
using Texts = std::vector<std::string>;

struct CaptureInputTest : testing::Test {
    void press(int code, const std::string& characters = {}) { input.apply({code, characters, {}}); }
    const CaptureState& state() const { return input.state(); }
    std::string shown() const {
        std::string names;
        for (const PickerOption& option : state().shownOptions) names += option.displayName + " ";
        return names;
    }

    FakeTarget note{"note"};
    FakeTarget slack{"slack", {{"C1", "#general"}, {"C2", "#random"}, {"U1", "@ana"}}};
    CaptureInput input;
};

TEST_F(CaptureInputTest, TabTakesOneOfferAfterTheOther) {
    input.open(note, {{"b", "second"}, {"a", "first"}}, "");
    EXPECT_EQ(state().offeredText, "second");
    press(keycode::tab);
    EXPECT_EQ(state().messageInput, "second");
    EXPECT_EQ(state().offeredText, "first");
    EXPECT_EQ(input.takenOffers(), Texts{"b"});
    input.setText("second and first by hand");
    EXPECT_EQ(input.takenOffers(), Texts{"b"}) << "what nobody took stays to be offered";
    press(keycode::tab);
    EXPECT_EQ(state().messageInput, "second and first by handfirst");
    EXPECT_FALSE(state().offeredText);
    press(keycode::tab);
    EXPECT_EQ(input.takenOffers(), (Texts{"b", "a"}));

    input.open(note, {{"c", "another"}}, "");
    EXPECT_TRUE(input.takenOffers().empty()) << "of the capture before";
    press(keycode::tab);
    EXPECT_EQ(state().messageInput, "another");
}

TEST_F(CaptureInputTest, AnOfferIsNoFilter) {
    input.open(slack, {{"a", "half a message"}}, "");
    input.optionsLoaded(slack.pickerOptions({}));
    press(keycode::tab);
    EXPECT_EQ(state().messageInput, "");
    ASSERT_TRUE(input.confirmSelection());
    press(keycode::tab);
    EXPECT_EQ(state().messageInput, "half a message");
}

TEST_F(CaptureInputTest, GoingBackToThePickerShowsEveryChoice) {
    input.open(slack, {}, "");
    input.optionsAreLoading();
    EXPECT_TRUE(state().isLoadingOptions);
    input.optionsLoaded(slack.pickerOptions({}));
    EXPECT_FALSE(state().isLoadingOptions);
    for (const char letter : {'a', 'n', 'a'}) press(0, std::string(1, letter));
    EXPECT_EQ(shown(), "@ana ");
    for (int i = 0; i < 3; ++i) press(keycode::downArrow);
    EXPECT_EQ(state().selectedOption->id, "U1");
    ASSERT_TRUE(input.confirmSelection());
    EXPECT_FALSE(input.confirmSelection());
    press(0, "x");
    press(keycode::deleteKey);
    EXPECT_TRUE(state().isTargetConfirmed) << "there was something to delete";
    press(keycode::deleteKey);
    EXPECT_FALSE(state().isTargetConfirmed);
    EXPECT_EQ(shown(), "#general #random @ana ");
    for (int i = 0; i < 5; ++i) press(keycode::upArrow);
    EXPECT_EQ(state().selectedOption->id, "C1");
}

TEST_F(CaptureInputTest, WhatWasSaidOfTheDiskEndsWithTheNextAttempt) {
    input.open(note, {}, "text");
    input.setConfirming(true);
    input.setWaitingForDisk();
    input.setFault("The disk is full.");
    input.setConfirming(false);
    EXPECT_FALSE(state().isWaitingForDisk);
    EXPECT_EQ(state().fault, "The disk is full.");
    press(0, "!");
    EXPECT_EQ(state().fault, "");
}
} // namespace
} // namespace snipwren
