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
    EXPECT_EQ(rig.recorded(), Texts{"note: buy milk ok"});
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
    rig.target("obsidian").missing = "No folder.";
    rig.type("a //note one\nb //copy two\nc //note three\x1b"
             "d //obsidian e //note four\nf");
    EXPECT_EQ(rig.text(), "a b c d //obsidiane f") << "the folder is missing, so that trigger stays";
    EXPECT_EQ(rig.note->sent, (Texts{"one", "four"}));
    EXPECT_EQ(rig.recorded(), (Texts{"note: one ok", "copy: two ok", "note: four ok"}));
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

TEST(CaptureRouterController, AWalkThatWasGivenUpTakesNothingAway) {
    CaptureRig rig;
    rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
    rig.desktop.focus(rig.field);
    rig.desktop.type("//note ");
    rig.queue.runReady(); // The walk's own queue gets no turn in time.
    rig.desktop.type("abc");
    rig.queue.advance(std::chrono::seconds(5));
    rig.settle();
    EXPECT_EQ(rig.text(), "//noteabc");
    EXPECT_TRUE(rig.desktop.syntheticKeys().empty());
}

TEST(CaptureRouterController, ALateWalkDoesNotOpenInTheNextOne) {
    CaptureRig rig;
    rig.desktop.type("//note ");
    rig.queue.advance(std::chrono::seconds(5)); // Its queue never got a turn.
    rig.type(" //copy x\n");
    EXPECT_EQ(rig.target("copy").sent, Texts{"x"});
    EXPECT_FALSE(rig.logged("Entered Capture Mode for target 'note'"));
}

// The second trigger never reached the host: what is stuck with it is given back as well.
TEST(CaptureRouterController, AStuckTriggerAmongKeptKeysComesBackWhole) {
    CaptureRig rig;
    rig.type("//note ");
    rig.desktop.type("one\na //copy two");
    for (int i = 0; i < 3; ++i) {
        rig.queue.runReady();
        rig.journalQueue.runReady();
    }
    EXPECT_EQ(rig.text(), "a ");
    EXPECT_EQ(rig.router->phase(), CapturePhase::stripping);
    rig.queue.advance(std::chrono::seconds(5)); // The walk's queue never gets a turn.
    EXPECT_EQ(rig.text(), "a //copytwo");
    EXPECT_FALSE(rig.router->isCaptureTransitionThreadSafe());
}

TEST(CaptureRouterController, WhatTheApplicationGotAlreadyIsTakenAlongOrLeft) {
    const struct {
        const char* name;
        int code;
        VirtualFieldKind kind;
        bool opens;
        const char* want;
    } cases[] = {
        {"a Space in a field", keycode::space, VirtualFieldKind::plain, true, "Hi "},
        {"a Space in a terminal", keycode::space, VirtualFieldKind::inaccessible, true, "Hi "},
        {"a Return, which may have sent the message", keycode::returnKey, VirtualFieldKind::multiline, false,
         "Hi //note\n"},
    };
    for (const auto& row : cases) {
        CaptureRig rig;
        rig.field = rig.desktop.addField("com.example.chat", row.kind);
        rig.desktop.focus(rig.field);
        rig.type("Hi //note");
        KeyEvent event;
        event.keyCode = row.code;
        event.characters = row.code == keycode::space ? " " : "\r";
        event.reachedHost = true;
        rig.desktop.with(rig.field, [&](VirtualField& field) { field.apply(event); });
        rig.router->handleKeyEvent(event);
        rig.settle();
        EXPECT_EQ(rig.overlay.isVisible(), row.opens) << row.name;
        EXPECT_EQ(rig.text(), row.want) << row.name;
    }
}

TEST(CaptureRouterController, NothingOfATriggerIsRememberedOnceItIsGone) {
    CaptureRig rig;
    rig.type("//note \x1b");
    rig.type("\b ");
    EXPECT_FALSE(rig.overlay.isVisible());
}

TEST(CaptureRouterController, TheOverlayIsNoField) {
    CaptureRig rig;
    rig.type("//note ");
    const auto place = rig.router->typedText().placeNumber();
    rig.router->focusChanged("com.example.editor", {}); // The host's field is gone as long as the overlay is there.
    rig.type("x\n");
    EXPECT_EQ(rig.router->typedText().placeNumber(), place);
    EXPECT_EQ(rig.router->typedText().lastTypingFingerprint()->bundleId, "com.example.editor");
    EXPECT_EQ(rig.workspace.activated, Texts{"com.example.editor"}) << "the keyboard goes back where it came from";
}

// Some programs tell of their focus only when they are asked for it: the keyboard was there before the trigger.
TEST(CaptureRouterController, AFocusThatIsToldLateIsNoChange) {
    CaptureRig rig;
    const auto terminal = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
    rig.desktop.setFocusObserver({});
    rig.desktop.focus(terminal);
    rig.desktop.type("//note ");
    rig.router->focusChanged("com.example.terminal", {});
    rig.settle();
    EXPECT_EQ(rig.desktop.text(terminal), "");
}

TEST(CaptureRouterController, BackspacesEndWithTheWindowAndWithTheProgram) {
    for (const bool byWindow : {false, true}) {
        CaptureRig rig;
        rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
        rig.desktop.focus(rig.field);
        rig.pause = [&](std::chrono::microseconds) {
            if (rig.desktop.syntheticKeys().size() < 2) return;
            byWindow ? rig.workspace.window.store(7) : rig.router->stopWalking();
        };
        rig.type("//note ");
        EXPECT_EQ(rig.desktop.syntheticKeys().size(), 2U) << byWindow;
    }
}

// In the order of typing: kept by the tap, then still given to the overlay, then kept again.
TEST(CaptureRouterController, GivesKeysBackInTheOrderOfTyping) {
    CaptureRig rig;
    rig.overlay.setTakesKeyboardAtOnce(false);
    rig.type("//note ");
    rig.desktop.type("a");
    rig.queue.call([&] {
        rig.router->exitCaptureMode();
        rig.router->handleOverlayKey({0, "b", {}});
    });
    rig.settle();
    EXPECT_EQ(rig.text(), "ab");
}

TEST(CaptureRouterController, AKeptShortcutIsPressedNotTyped) {
    CaptureRig rig;
    rig.target("obsidian").missing = "No folder.";
    rig.desktop.type("//obsidian ");
    rig.press(8, "c", {.control = true});
    EXPECT_EQ(rig.text(), "//obsidian");
    EXPECT_EQ(rig.desktop.syntheticKeys(), std::vector<int>{8});
}

TEST(CaptureRouterController, EscapeRecordsNothingAndOffersTheTextAgain) {
    CaptureRig rig;
    rig.type("//note half a thought\x1b");
    EXPECT_TRUE(rig.recorded().empty());
    EXPECT_TRUE(rig.saved().empty());
    EXPECT_TRUE(rig.logged("⎋ CaptureRouterController: Canceled capture mode"));
    rig.type("//copy ");
    EXPECT_FALSE(rig.router->state().offeredText) << "another target's text";
    rig.type("\x1b");
    rig.type(" //note and \t\n");
    EXPECT_EQ(rig.note->sent, Texts{"and half a thought"});
    rig.type(" //note ");
    EXPECT_FALSE(rig.router->state().offeredText) << "sent, so no longer offered";
}

TEST(CaptureRouterController, AsksForWhatIsMissingBeforeAnythingIsTyped) {
    CaptureRig rig;
    const auto failures = rig.watch("PresentCaptureFailure");
    rig.target("obsidian").missing = "No folder is set.";
    rig.type("//obsidian x");
    EXPECT_FALSE(rig.overlay.isVisible());
    ASSERT_EQ(failures->size(), 1U);
    EXPECT_EQ(text(failures->front(), "message"), "No folder is set.");
    EXPECT_EQ(rig.text(), "//obsidianx") << "the letter typed meanwhile is not lost";
    rig.target("obsidian").missing.reset();
    rig.type(" //obsidian ");
    EXPECT_TRUE(rig.overlay.isVisible());
}

// Typed at full speed or not: the Space that ended it is gone, and the next one is the host's.
TEST(CaptureRouterController, ATriggerThatCannotOpenIsNotFoundAgain) {
    for (const bool isKept : {false, true}) {
        CaptureRig rig;
        const auto failures = rig.watch("PresentCaptureFailure");
        rig.target("obsidian").missing = "No folder is set.";
        rig.desktop.type("//note x\n");
        if (!isKept) rig.settle();
        rig.type("//obsidian  y");
        EXPECT_EQ(rig.text(), "//obsidian y") << isKept;
        EXPECT_EQ(failures->size(), 1U) << isKept;
    }
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

// What is typed in a picker looks for a choice: it is no message, whatever becomes of the capture.
TEST(CaptureRouterController, AFilterIsKeptNowhere) {
    CaptureRig rig;
    rig.type("//slack ");
    rig.router->handleMessageInputChange("gen");
    rig.journalQueue.advance(OpenCaptureDraft::delay);
    EXPECT_TRUE(rig.journal.entries()->empty());
    rig.router->keepUnsentText();
    rig.settle();
    EXPECT_TRUE(rig.saved().empty());
    rig.type("\x1b");
    rig.type("//slack ");
    EXPECT_FALSE(rig.router->state().offeredText);
}

TEST(CaptureRouterController, AClosedPickerLoadsNothing) {
    CaptureRig rig;
    rig.type("//slack \x1b");
    EXPECT_EQ(rig.slack->loads, 0);
    rig.type("//slack ");
    EXPECT_EQ(rig.slack->loads, 1);
    EXPECT_FALSE(rig.router->state().isLoadingOptions);
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
        {"the left edge", {0, 200, 0, 18}, {0, 200, 0, 18}, false},
        {"the upper edge", {300, 0, 0, 18}, {300, 0, 0, 18}, false},
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

// Until a slow program shows the typed trigger, the text's end has a like one that is the user's.
TEST(CaptureRouterController, ALateFieldKeepsTheTriggerAtItsEnd) {
    CaptureRig rig;
    rig.field = rig.desktop.addField("com.example.heavy", VirtualFieldKind::slow);
    rig.desktop.with(rig.field, [](VirtualField& field) {
        field.setText("one two //note");
        field.setCaret(4);
    });
    rig.desktop.focus(rig.field);
    rig.type("//note ");
    EXPECT_EQ(rig.text(), "one two //note");
    EXPECT_EQ(rig.desktop.with(rig.field, [](VirtualField& field) { return field.caret(); }), 4U);
    EXPECT_TRUE(rig.desktop.syntheticKeys().empty());
}

// A terminal shows nothing of what it holds: what the shell did with the line is unknown, and its text is the user's.
TEST(CaptureRouterController, TakesNothingAwayAfterWhatItCouldNotFollow) {
    const Modifiers control{.control = true};
    const std::pair<const char*, std::function<void(CaptureRig&)>> cases[] = {
        {"Ctrl+W", [&](CaptureRig& rig) { rig.press(13, "w", control); }},
        {"Ctrl+U", [&](CaptureRig& rig) { rig.press(32, "u", control); }},
        {"Ctrl+C", [&](CaptureRig& rig) { rig.press(8, "c", control); }},
        {"Ctrl+A", [&](CaptureRig& rig) { rig.press(0, "a", control); }},
        {"Ctrl+Z", [&](CaptureRig& rig) { rig.press(6, "z", control); }},
        {"Ctrl+V", [&](CaptureRig& rig) { rig.press(9, "v", control); }},
        {"Alt+Backspace", [](CaptureRig& rig) { rig.press(keycode::deleteKey, "", {.option = true}); }},
        {"Ctrl+Backspace", [&](CaptureRig& rig) { rig.press(keycode::deleteKey, "", control); }},
        {"Home", [](CaptureRig& rig) { rig.press(keycode::home, "\uF729"); }},
        {"a click", [](CaptureRig& rig) { rig.desktop.click(0); }},
    };
    for (const auto& [name, act] : cases) {
        const auto typeInto = [&act = act](CaptureRig& rig) {
            rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
            rig.desktop.focus(rig.field);
            rig.type("echo precious //no");
            act(rig);
            rig.type("te ");
            return rig.text();
        };
        CaptureRig rig;
        CaptureRig without(false);
        EXPECT_EQ(typeInto(rig), typeInto(without)) << name;
        EXPECT_TRUE(rig.desktop.syntheticKeys().empty()) << name;
        EXPECT_FALSE(rig.overlay.isVisible()) << name;
    }
}

TEST(CaptureRouterController, AFocusChangeBehindTheSpaceSavesTheOtherWindow) {
    for (const bool duringBackspaces : {false, true}) {
        CaptureRig rig;
        rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible);
        const auto other = rig.desktop.addField("com.example.editor2", VirtualFieldKind::inaccessible, "Other");
        rig.desktop.with(other, [](VirtualField& field) { field.setText("precious text"); });
        rig.desktop.focus(rig.field);
        rig.desktop.type("//note ");
        if (duringBackspaces) {
            rig.pause = [&](std::chrono::microseconds) {
                if (rig.desktop.syntheticKeys().size() == 2) rig.desktop.focus(other);
            };
        } else {
            rig.desktop.focus(other);
        }
        rig.settle();
        EXPECT_EQ(rig.desktop.text(other), "precious text") << duringBackspaces;
        EXPECT_EQ(rig.desktop.syntheticKeys().size(), duringBackspaces ? 2U : 0U);
    }
}

TEST(CaptureRouterController, AnotherFieldOfTheSameWindowIsSavedToo) {
    CaptureRig rig;
    rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible, "First");
    const auto other = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible, "Second");
    rig.desktop.with(other, [](VirtualField& field) { field.setText("precious text"); });
    rig.desktop.focus(rig.field);
    rig.desktop.type("//note ");
    rig.desktop.focus(other);
    rig.settle();
    EXPECT_EQ(rig.desktop.text(other), "precious text");
}

TEST(CaptureRouterController, AnotherFieldDuringTheCaptureIsAnotherPlace) {
    CaptureRig rig;
    rig.field = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible, "First");
    const auto other = rig.desktop.addField("com.example.terminal", VirtualFieldKind::inaccessible, "Second");
    rig.desktop.with(rig.field, [](VirtualField& field) { field.setText("precious text"); });
    rig.desktop.focus(rig.field);
    rig.type("//note x");
    rig.router->focusChanged("com.example.terminal", {}); // The overlay has the keyboard.
    rig.desktop.focus(other);
    rig.type("\n//no");
    rig.desktop.focus(rig.field);
    rig.type("te ");
    EXPECT_EQ(rig.text(), "precious textte ");
    EXPECT_EQ(rig.desktop.text(other), "//no");
    EXPECT_EQ(rig.desktop.syntheticKeys().size(), 6U) << "those of the first trigger";
}

TEST(CaptureRouterController, AKeptSecretIsNotLookedAt) {
    CaptureRig rig;
    rig.type("//note ");
    rig.desktop.setSecureInput(true);
    rig.type("x\nsecret //copy word");
    EXPECT_EQ(rig.text(), "secret //copy word");
    EXPECT_EQ(rig.router->typedText().text(), "");
    EXPECT_FALSE(rig.overlay.isVisible());
}

// An overlay without a text field of its own gets keys, not text.
TEST(CaptureRouterController, KeysThatMoveTheCaretAreNoText) {
    CaptureRig rig;
    rig.type("//note a");
    for (const auto& [code, characters] :
         std::initializer_list<std::pair<int, const char*>>{{keycode::leftArrow, "\uF702"},
                                                            {keycode::upArrow, "\uF700"},
                                                            {keycode::home, "\uF729"},
                                                            {121, "\uF72D"},
                                                            {96, "\uF708"},
                                                            {keycode::forwardDelete, "\uF728"},
                                                            {0, "\x7f"}})
        rig.press(code, characters);
    rig.press(0, "x", {.option = true});
    rig.type("b\n");
    EXPECT_EQ(rig.note->sent, Texts{"ab"});
}

// Kept or not, a dead key is no break in what is typed, and its character comes once.
TEST(CaptureRouterController, AKeptDeadKeyTypesItsCharacterOnly) {
    CaptureRig rig;
    const auto dead = [&rig] {
        KeyEvent event;
        event.keyCode = 39; // On some layouts an apostrophe.
        event.isComposing = true;
        rig.desktop.press(event);
    };
    rig.desktop.type("//note \n//");
    dead();
    rig.desktop.type("note x\n");
    dead();
    rig.desktop.type("\u00e9");
    rig.settle();
    EXPECT_EQ(rig.note->sent, (Texts{"", "x"}));
    EXPECT_EQ(rig.text(), "\u00e9");
    EXPECT_TRUE(rig.desktop.syntheticKeys().empty());
}

TEST(CaptureRouterController, ACancelledTextIsOfferedByTheNextProgramToo) {
    CaptureRig rig;
    rig.type("//note first thought\x1b");
    rig.clock.advance(std::chrono::seconds(1));
    rig.type("//note second thought\x1b");
    rig.clock.advance(std::chrono::seconds(1));
    // What the next program reads.
    DeliveryRig next(rig.folder);
    const auto offers = next.journal.cancelledTexts("note");
    ASSERT_EQ(offers.size(), 2U);
    rig.type("//note ");
    EXPECT_EQ(rig.router->state().offeredText, "second thought");
    rig.type("\t");
    EXPECT_EQ(rig.router->state().messageInput, "second thought");
    rig.type("\t\n");
    EXPECT_EQ(rig.note->sent, Texts{"first thought"}) << "Tab again takes the one before it";
    rig.type("//note ");
    EXPECT_EQ(rig.router->state().offeredText, "second thought") << "the other one was sent";
}

TEST(CaptureRouterController, ATextThatIsBroughtAlongGoesToItsOwnTargetOnly) {
    CaptureRig rig;
    rig.target("obsidian").missing = "No folder.";
    rig.router->enterCaptureModeUI(rig.target("obsidian"), "kept text");
    rig.settle();
    EXPECT_FALSE(rig.overlay.isVisible());
    rig.type("//note ");
    EXPECT_EQ(rig.router->state().messageInput, "");
    rig.type("\x1b");
    rig.router->enterCaptureModeUI(*rig.note, "kept text");
    rig.settle();
    rig.journalQueue.advance(OpenCaptureDraft::delay);
    ASSERT_EQ(rig.journal.entries()->size(), 1U);
    EXPECT_EQ(rig.journal.entries()->front().text, "kept text") << "as safe as a typed one";
    rig.type("\n");
    EXPECT_EQ(rig.note->sent, Texts{"kept text"});
}

TEST(CaptureRouterController, WhatIsBeingTypedIsInTheJournalAMomentLater) {
    CaptureRig rig;
    rig.type("//note half a thou");
    EXPECT_TRUE(rig.journal.entries()->empty());
    rig.journalQueue.advance(OpenCaptureDraft::delay);
    ASSERT_EQ(rig.journal.entries()->size(), 1U);
    EXPECT_EQ(rig.journal.entries()->front().text, "half a thou");
    rig.type("ght");
    rig.router->keepUnsentText();
    rig.journalQueue.advance(std::chrono::seconds(1));
    EXPECT_EQ(rig.saved(), Texts{"note: half a thought (Snipwren ended before Return was pressed.)"});
    rig.settle();
    EXPECT_TRUE(rig.journal.entries()->empty()) << "and nowhere else";
    EXPECT_TRUE(rig.recorded().empty()) << "nothing was sent";
}

TEST(CaptureRouterController, TheOverlayClosesOnceTheTextIsOnTheDisk) {
    CaptureRig rig;
    rig.type("//note buy milk");
    rig.desktop.type("\nab");
    rig.queue.runReady();
    EXPECT_TRUE(rig.overlay.isVisible()) << "the disk has not answered";
    EXPECT_TRUE(rig.router->state().isConfirming);
    rig.router->handleMessageInputChange("buy milkab");
    EXPECT_EQ(rig.router->state().messageInput, "buy milk") << "what is typed now is the host's";
    rig.settle();
    EXPECT_FALSE(rig.overlay.isVisible());
    EXPECT_EQ(rig.text(), "ab");
    EXPECT_EQ(rig.note->sent, Texts{"buy milk"});
}

TEST(CaptureRouterController, ADiskThatTakesNothingKeepsTheOverlayOpen) {
    CaptureRig rig;
    rig.type("//note buy milk");
    rig.files.code = ENOSPC;
    rig.files.failAllFromThen = true;
    rig.files.failAt = rig.files.operations + 1;
    rig.type("\n");
    EXPECT_TRUE(rig.overlay.isVisible());
    EXPECT_NE(rig.router->state().fault, "");
    EXPECT_EQ(rig.router->state().messageInput, "buy milk");
    EXPECT_TRUE(rig.note->sent.empty());
    rig.files.failAt = 0;
    rig.queue.advance(CaptureRouterController::diskPatience);
    EXPECT_FALSE(rig.router->state().isWaitingForDisk) << "it has answered";
    rig.type("!");
    EXPECT_EQ(rig.router->state().fault, "");
    rig.type("\n");
    EXPECT_EQ(rig.note->sent, Texts{"buy milk!"});
    EXPECT_EQ(rig.router->state().fault, "");
}

TEST(CaptureRouterController, ADiskThatDoesNotAnswerMayBeLeft) {
    for (const bool refuses : {false, true}) {
        CaptureRig rig;
        rig.type("//note buy milk");
        rig.desktop.type("\n\x1b");
        rig.queue.runReady();
        EXPECT_TRUE(rig.overlay.isVisible()) << "an Escape at once is the host's";
        rig.queue.advance(CaptureRouterController::diskPatience);
        EXPECT_TRUE(rig.router->state().isWaitingForDisk);
        rig.desktop.type("\x1b");
        rig.queue.runReady();
        EXPECT_FALSE(rig.overlay.isVisible());
        EXPECT_EQ(rig.router->phase(), CapturePhase::idle);
        if (refuses) rig.files.failAt = rig.files.operations + 1;
        rig.settle();
        EXPECT_EQ(rig.note->sent, refuses ? Texts{} : Texts{"buy milk"}) << "it goes its way by itself";
        EXPECT_EQ(rig.saved().size(), refuses ? 1U : 0U) << "nobody is there to try again";
    }
}
} // namespace
} // namespace snipwren
