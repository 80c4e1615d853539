#include "capture/CaptureRouterController.h"

#include <gtest/gtest.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
using Texts = std::vector<std::string>;

TEST(CaptureRouterController, CarriesOneCaptureFromTriggerToHistory) {
    CaptureRig rig;
    const auto hidden = rig.watch("HideSuggestionsOverlay");
    rig.type("Hello, //Note ");
    EXPECT_EQ(rig.text(), "Hello, ");
    ASSERT_TRUE(rig.router->isCaptureModeActiveThreadSafe());
    EXPECT_EQ(hidden->size(), 1U);
    rig.type("buy milkk\b");
    EXPECT_EQ(rig.router->state().messageInput, "buy milk");
    rig.type("\n");
    EXPECT_FALSE(rig.router->isCaptureModeActiveThreadSafe());
    EXPECT_EQ(rig.note->sent, Texts{"buy milk"});
    EXPECT_EQ(rig.recorder.recorded, Texts{"note: buy milk ok"});
    EXPECT_EQ(rig.permissionsAsked, Texts{"note"});
    rig.type("world");
    EXPECT_EQ(rig.text(), "Hello, world");
    EXPECT_TRUE(rig.logged("🚀 CaptureRouterController: Entered Capture Mode for target 'note'"));
    EXPECT_TRUE(rig.logged("✅ CaptureRouterController: Successfully sent capture to 'note'"));
}

// Everything is typed before the main queue gets a turn: all keys fall into the transition.
TEST(CaptureRouterController, LosesAndDoublesNoKeyAtFullSpeed) {
    CaptureRig rig;
    std::string typed, want;
    Texts sent;
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i);
        rig.desktop.type("a" + number + " //note message " + number + "\nb" + number + " ");
        rig.settle();
        want += "a" + number + " b" + number + " ";
        sent.push_back("message " + number);
    }
    EXPECT_EQ(rig.text(), want);
    EXPECT_EQ(rig.note->sent, sent);
}

// The second and third capture are typed while the first one's overlay is still opening.
TEST(CaptureRouterController, FindsTriggersAmongKeptKeys) {
    CaptureRig rig;
    rig.type("a //note one\nb //copy two\nc //note three\x1b"
             "d //obsidian e //note four\nf");
    EXPECT_EQ(rig.text(), "a b c d //obsidiane f") << "the folder is missing, so that trigger stays";
    EXPECT_EQ(rig.note->sent, (Texts{"one", "four"}));
    EXPECT_EQ(rig.recorder.recorded, (Texts{"note: one ok", "copy: two ok", "note: four ok"}));
    EXPECT_FALSE(rig.router->isCaptureTransitionThreadSafe());
}

// Those keys are in our hands: no program sees a trigger of them, so there is nothing to take back from it.
TEST(CaptureRouterController, TypesNoKeptTriggerIntoTheHost) {
    CaptureRig rig;
    rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
    rig.desktop.focus(rig.field);
    rig.type("a //note one\nb //no\bote two\nc");
    EXPECT_EQ(rig.note->sent, (Texts{"one", "two"}));
    EXPECT_EQ(rig.text(), "a b c");
    EXPECT_EQ(rig.pauses.size(), 9U)
        << "Backspaces: six for what was typed before, three for what a Backspace was behind";
}

// Typed while the overlay has the keyboard, before anybody had the time to look at the Return.
TEST(CaptureRouterController, WhatAClosingOverlayStillGetsBelongsToTheHostAndToTheNextCapture) {
    CaptureRig rig;
    rig.type("//note ");
    rig.desktop.type("one\nab //note two\nc");
    rig.queue.runReady();
    rig.desktop.type("d");
    rig.settle();
    EXPECT_EQ(rig.note->sent, (Texts{"one", "two"}));
    EXPECT_EQ(rig.text(), "ab cd");
    EXPECT_FALSE(rig.router->isCaptureTransitionThreadSafe());
}

TEST(CaptureRouterController, GivesKeptKeysToASlowOverlayInOrder) {
    CaptureRig rig;
    rig.overlay.setTakesKeyboardAtOnce(false);
    rig.type("//note bu");
    rig.type("y mi");
    EXPECT_TRUE(rig.router->isCaptureTransitionThreadSafe());
    rig.desktop.type("l");
    rig.overlay.takeKeyboard();
    EXPECT_FALSE(rig.router->isCaptureTransitionThreadSafe());
    rig.type("k");
    EXPECT_EQ(rig.router->state().messageInput, "buy milk");
    EXPECT_EQ(rig.text(), "");
}

TEST(CaptureRouterController, KeptEscapeClosesAndTheRestGoesToTheHost) {
    CaptureRig rig;
    rig.type("x //note abc\x1b"
             "yz");
    EXPECT_EQ(rig.text(), "x yz");
    EXPECT_FALSE(rig.overlay.isVisible());
    EXPECT_TRUE(rig.note->sent.empty());
}

TEST(CaptureRouterController, ReleasesAStuckTransitionAfterFiveSeconds) {
    CaptureRig rig;
    rig.desktop.type("//note ");
    rig.queue.runReady(); // The walk begins, and its queue never gets a turn.
    rig.desktop.type("abc");
    rig.queue.advance(std::chrono::milliseconds(4999));
    EXPECT_TRUE(rig.router->isCaptureTransitionThreadSafe());
    EXPECT_EQ(rig.text(), "//note");
    rig.queue.advance(std::chrono::milliseconds(1));
    EXPECT_FALSE(rig.router->isCaptureTransitionThreadSafe());
    EXPECT_EQ(rig.text(), "//noteabc") << "what was typed meanwhile is given back";
    rig.transitionQueue.runReady(); // The late walk arrives ...
    rig.queue.runReady();
    EXPECT_FALSE(rig.overlay.isVisible()) << "... and is no longer the current one";
    rig.type(" //note z\n");
    EXPECT_EQ(rig.note->sent, Texts{"z"});
}

TEST(CaptureRouterController, KeepsAFailedCapture) {
    for (const bool diskFull : {false, true}) {
        CaptureRig rig;
        const auto failures = rig.watch("PresentCaptureFailure");
        rig.recorder.diskFull = diskFull;
        rig.note->failure = CaptureError{"LocalNoteTarget", 28, "No space left."};
        rig.type("//note buy milk\n");
        EXPECT_EQ(rig.recorder.saved.size(), diskFull ? 0U : 1U);
        EXPECT_EQ(rig.recorder.recorded, Texts{"note: buy milk failed"});
        ASSERT_EQ(failures->size(), 1U);
        EXPECT_EQ(text(failures->front(), "message"),
                  diskFull ? "Capture failed: No space left."
                           : "Capture failed: No space left.\nSaved to local recovery log.");
        EXPECT_EQ(flag(failures->front(), "saved"), !diskFull);
        EXPECT_EQ(text(failures->front(), "actionTitle"), "Show recovery log");
        EXPECT_EQ(failures->front().count("field"), 0U);
    }
}

TEST(CaptureRouterController, EscapeRecordsNothingAndOffersTheTextAgain) {
    CaptureRig rig;
    rig.type("//note half a thought\x1b");
    EXPECT_TRUE(rig.recorder.recorded.empty());
    EXPECT_TRUE(rig.recorder.saved.empty());
    EXPECT_TRUE(rig.logged("⎋ CaptureRouterController: Canceled capture mode"));
    rig.type("//copy ");
    EXPECT_FALSE(rig.router->state().offeredText) << "another target's text";
    rig.type("\x1b");
    rig.type(" //note and \t\n");
    EXPECT_EQ(rig.note->sent, Texts{"and half a thought"});
    rig.type(" //note ");
    EXPECT_FALSE(rig.router->state().offeredText) << "sent, so no longer offered";
}

TEST(CaptureRouterController, AsksForAMissingFolderBeforeAnythingIsTyped) {
    CaptureRig rig;
    const auto failures = rig.watch("PresentCaptureFailure");
    rig.type("//obsidian x");
    EXPECT_FALSE(rig.overlay.isVisible());
    ASSERT_EQ(failures->size(), 1U);
    EXPECT_EQ(text(failures->front(), "message"),
              "No Obsidian vault folder is set. Choose the folder in Settings, then type //obsidian again.");
    EXPECT_EQ(rig.text(), "//obsidianx") << "the letter typed meanwhile is not lost";
    ASSERT_TRUE(rig.defaults.set("obsidianVaultPath", rig.folder.file("nowhere")));
    rig.type(" //obsidian ");
    ASSERT_EQ(failures->size(), 2U);
    EXPECT_NE(text(failures->back(), "message").find("path does not exist or is not a folder: "), std::string::npos);
    ASSERT_TRUE(rig.defaults.set("obsidianVaultPath", rig.folder.path()));
    rig.type(" //obsidian ");
    EXPECT_TRUE(rig.overlay.isVisible());
}

TEST(CaptureRouterController, PickerFiltersConfirmsAndGoesBack) {
    CaptureRig rig;
    rig.type("//slack an");
    ASSERT_TRUE(rig.router->state().selectedOption);
    EXPECT_EQ(rig.router->state().selectedOption->displayName, "#random");
    rig.router->moveSelection(1);
    rig.router->moveSelection(1); // The end of the list holds.
    EXPECT_EQ(rig.router->state().selectedOption->displayName, "@ana");
    rig.type("\n");
    ASSERT_TRUE(rig.router->state().isTargetConfirmed);
    EXPECT_EQ(rig.router->state().messageInput, "");
    rig.type("\b");
    EXPECT_FALSE(rig.router->state().isTargetConfirmed) << "Delete in an empty message goes back";
    rig.type("general\nhello\n");
    EXPECT_EQ(rig.slack->sent, Texts{"C1: hello"});
}

TEST(CaptureRouterController, AnUnmatchedFilterConfirmsNothing) {
    CaptureRig rig;
    rig.type("//slack zzz\n");
    EXPECT_FALSE(rig.router->state().isTargetConfirmed);
    EXPECT_TRUE(rig.slack->sent.empty());
    EXPECT_TRUE(rig.overlay.isVisible());
}

TEST(CaptureRouterController, PreviewsWhatReturnWouldDo) {
    CaptureRig rig;
    rig.type("//calc 1+1");
    EXPECT_EQ(rig.router->state().calcLivePreviewText, "calc(1+1)");
    rig.type("\x1b");
    rig.type(" //timer 5m");
    EXPECT_EQ(rig.router->state().livePreviewText, "timer(5m)");
    EXPECT_FALSE(rig.router->state().calcLivePreviewText);
}

TEST(CaptureRouterController, PlacesTheOverlayAtTheCaretOrTheNextBestPlace) {
    const struct {
        const char* name;
        Rect caret;
        Rect want;
        bool suspected;
    } cases[] = {
        {"caret", {300, 200, 0, 18}, {300, 200, 0, 18}, false},
        {"origin", {0, 0, 0, 18}, {200, 150, 640, 320}, true},
        {"as tall as the screen", {10, 10, 1, 900}, {200, 150, 640, 320}, true},
        {"off every screen", {5000, 5000, 1, 18}, {200, 150, 640, 320}, false},
    };
    for (const auto& row : cases) {
        CaptureRig rig;
        rig.desktop.setCaretBounds(row.caret);
        rig.type("//note ");
        EXPECT_EQ(rig.overlay.anchor(), row.want) << row.name;
        EXPECT_EQ(rig.logged(" [Electron-Failure-Pattern-Suspected]"), row.suspected) << row.name;
    }
    CaptureRig rig;
    const auto terminal = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
    rig.desktop.focus(terminal);
    rig.type("ls //note ");
    EXPECT_EQ(rig.overlay.anchor(), (Rect{720, 450, 0, 0})) << "the pointer";
    EXPECT_EQ(rig.desktop.text(terminal), "ls ");
}

TEST(CaptureRouterController, StripsEachKindOfFieldWithoutTouchingMore) {
    const struct {
        const char* name;
        VirtualFieldKind kind;
        const char* bundleId;
        std::size_t backspaces;
        const char* want;
    } cases[] = {
        {"plain", VirtualFieldKind::plain, "com.example.editor", 0, "Hi "},
        {"multi-line", VirtualFieldKind::multiline, "com.example.editor", 0, "Hi "},
        {"structured", VirtualFieldKind::structured, "com.notion.desktop", 6, "Hi "},
        {"claims edits it does not make", VirtualFieldKind::lying, "com.example.editor", 6, "Hi "},
        {"not accessible", VirtualFieldKind::inaccessible, "com.example.terminal", 6, "Hi "},
    };
    for (const auto& row : cases) {
        CaptureRig rig;
        const auto field = rig.desktop.addField(row.bundleId, row.kind, row.name);
        rig.desktop.focus(field);
        rig.type("Hi //note ");
        EXPECT_EQ(rig.desktop.text(field), row.want) << row.name;
        EXPECT_EQ(rig.desktop.syntheticKeys().size(), row.backspaces) << row.name;
    }
}

// The trigger was typed, and then the program changed its field by itself: Backspaces would eat the user's text.
TEST(CaptureRouterController, PostsNoBackspacesIntoAFieldWithoutTheTrigger) {
    CaptureRig rig;
    rig.desktop.type("//note");
    rig.desktop.with(rig.field, [](VirtualField& field) { field.setText("precious text"); });
    rig.type(" ");
    EXPECT_EQ(rig.text(), "precious text");
    EXPECT_TRUE(rig.desktop.syntheticKeys().empty());
    EXPECT_TRUE(rig.overlay.isVisible());
}
} // namespace
} // namespace snipwren
