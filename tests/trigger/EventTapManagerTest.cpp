#include "trigger/EventTapManager.h"

#include <gtest/gtest.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
KeyEvent key(int code, const char* characters = "", Modifiers modifiers = {}) {
    KeyEvent event;
    event.keyCode = code;
    event.characters = characters;
    event.modifiers = modifiers;
    return event;
}

class FakeSuggestions final : public EventTapManagerDelegate {
public:
    void typingContextChanged(const TypingContext::Snapshot& context, const std::string&) override {
        prefix = context.currentWordPrefix;
    }
    void handleTab() override { done += "tab "; }
    void handleReturn() override { done += "return "; }
    void selectSuggestion(int position) override { done += std::to_string(position) + " "; }
    std::string done;
    std::string prefix;
};

TEST(EventTapManager, DoesNotStartUntrusted) {
    CaptureRig rig(false);
    rig.desktop.setTrusted(false);
    rig.tap->start();
    EXPECT_FALSE(rig.tap->isRunning());
    EXPECT_TRUE(rig.logged("Accessibility not trusted. Skipping event tap creation."));
}

TEST(EventTapManager, ShowsThePermissionAlertWhenNoTapCanBeMade) {
    CaptureRig rig(false);
    rig.desktop.setTapCreationFails(true);
    rig.alerts.answer = 0;
    rig.tap->start();
    rig.tap->stop(); // Joins the thread that tried.
    rig.settle();
    ASSERT_EQ(rig.alerts.shown.size(), 1U);
    EXPECT_EQ(rig.alerts.shown[0].title, "Input Monitoring or Accessibility Permission Required");
    EXPECT_EQ(rig.desktop.openedPaths().size(), 1U) << "the first button opens the settings";
}

TEST(EventTapManager, OnlyTheNewestStartOwnsATap) {
    CaptureRig rig(false);
    for (int i = 0; i < 20; ++i) rig.tap->start(); // Older threads find themselves outdated at any point.
    rig.desktop.waitForTap();
    rig.type("abc");
    EXPECT_EQ(rig.text(), "abc");
    rig.tap->stop();
    EXPECT_FALSE(rig.tap->isRunning());
}

/// Makes its tap only once somebody has begun to stop the manager.
class SlowTaps final : public KeyboardTapProvider {
public:
    explicit SlowTaps(KeyboardTapProvider& real) : real_(real) {}
    Result<std::shared_ptr<KeyboardTap>, TapError> createTap(KeyboardTapListener& listener) override {
        while (!isStopping) std::this_thread::yield();
        return real_.createTap(listener);
    }
    std::atomic<bool> isStopping = false;

private:
    KeyboardTapProvider& real_;
};

/// Tells when the manager gives up its timer, which it does on its way out.
class TellingQueue final : public SerialQueue {
public:
    TellingQueue(SerialQueue& lender, std::function<void()> onCancel)
        : lender_(lender),
          onCancel_(std::move(onCancel)) {}
    const std::string& label() const override { return lender_.label(); }
    void async(Task task) override { lender_.async(std::move(task)); }
    TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) override {
        return lender_.asyncAfter(delay, std::move(task));
    }
    bool cancel(TimerId timer) override {
        if (timer != 0) onCancel_();
        return lender_.cancel(timer);
    }
    bool isCurrent() const override { return lender_.isCurrent(); }

private:
    SerialQueue& lender_;
    const std::function<void()> onCancel_;
};

TEST(EventTapManager, ATapThatIsMadeDuringTheEndNeverRuns) {
    CaptureRig rig(false);
    SlowTaps taps(rig.desktop);
    TellingQueue main(rig.queue, [&] { taps.isStopping = true; });
    EventTapManager manager({.taps = taps,
                             .permissions = rig.desktop,
                             .workspace = rig.workspace,
                             .ownWindows = rig.overlay,
                             .router = *rig.router,
                             .exclusions = rig.exclusions,
                             .keyboard = rig.desktop,
                             .alerts = rig.alerts,
                             .notifications = rig.notifications,
                             .defaults = rig.defaults,
                             .mainQueue = main,
                             .processingQueue = rig.processing,
                             .clock = rig.clock,
                             .log = rig.log});
    manager.start();
    manager.stop(); // Would wait for ever.
    EXPECT_FALSE(manager.isRunning());
    EXPECT_FALSE(rig.desktop.isTapListening());
}

TEST(EventTapManager, WithoutATapNobodyWaitsForOne) {
    CaptureRig rig(false);
    bool isInForce = false;
    rig.tap->interestChanged([&] { isInForce = true; });
    EXPECT_TRUE(isInForce);
}

TEST(EventTapManager, PasswordsAndExcludedApplicationsAreNotLookedAt) {
    CaptureRig rig;
    const auto password = rig.desktop.addField("com.example.browser", VirtualFieldKind::password);
    rig.desktop.focus(password);
    rig.type("//note ");
    EXPECT_EQ(rig.desktop.text(password), "//note ");
    EXPECT_FALSE(rig.overlay.isVisible());
    EXPECT_EQ(rig.router->typedText().text(), "");

    const auto vault = rig.desktop.addField("com.example.vault", VirtualFieldKind::plain);
    rig.exclusions.excluded = "com.example.vault";
    rig.desktop.focus(vault);
    rig.type("//note ");
    EXPECT_EQ(rig.desktop.text(vault), "//note ");
    EXPECT_FALSE(rig.overlay.isVisible());

    rig.desktop.focus(rig.field);
    rig.type("//no");
    rig.desktop.setSecureInput(true); // A prompt in front of the same field.
    rig.type("x");
    rig.desktop.setSecureInput(false);
    rig.type("te ");
    EXPECT_FALSE(rig.overlay.isVisible()) << "what was typed before the secret is forgotten as well";
}

TEST(EventTapManager, ComesBackTwoSecondsAfterATimeoutAndNoSooner) {
    CaptureRig rig;
    rig.queue.advance(std::chrono::milliseconds(1500));
    rig.desktop.disableTapByTimeout();
    rig.queue.advance(std::chrono::milliseconds(1999)); // The watchdog has looked meanwhile.
    EXPECT_FALSE(rig.desktop.isTapListening());
    rig.queue.advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(rig.desktop.isTapListening());
}

TEST(EventTapManager, NothingRevivesATapThatWasGivenUpButANewStart) {
    CaptureRig rig;
    for (int i = 0; i < EventTapManager::maxConsecutiveTimeouts; ++i) rig.desktop.disableTapByTimeout();
    ASSERT_TRUE(rig.tap->isTapPermanentlyDisabled());
    rig.desktop.disableTapByUserInput();
    rig.queue.advance(std::chrono::seconds(30)); // Past the revivals that the first timeouts announced.
    EXPECT_FALSE(rig.desktop.isTapListening());
    EXPECT_TRUE(rig.alerts.shown.empty()) << "it is known why";

    rig.tap->start();
    rig.desktop.waitForTap();
    rig.desktop.disableTapByTimeout();
    EXPECT_FALSE(rig.tap->isTapPermanentlyDisabled()) << "counted anew";
    rig.queue.advance(std::chrono::seconds(2));
    EXPECT_TRUE(rig.desktop.isTapListening());
}

TEST(EventTapManager, GivesUpAfterThreeTimeoutsWithoutAKey) {
    CaptureRig rig;
    const auto failures = rig.watch("PresentCaptureFailure");
    for (int i = 0; i < 2; ++i) rig.desktop.disableTapByTimeout();
    EXPECT_FALSE(rig.desktop.isTapListening());
    rig.queue.advance(std::chrono::seconds(2));
    EXPECT_TRUE(rig.desktop.isTapListening()) << "back after the cooldown";
    rig.type("x"); // A key that arrives proves the tap alive.
    for (int i = 0; i < 2; ++i) rig.desktop.disableTapByTimeout();
    rig.queue.advance(std::chrono::seconds(2));
    EXPECT_FALSE(rig.tap->isTapPermanentlyDisabled());
    EXPECT_TRUE(failures->empty());

    rig.desktop.disableTapByTimeout();
    rig.settle();
    EXPECT_TRUE(rig.tap->isTapPermanentlyDisabled());
    ASSERT_EQ(failures->size(), 1U);
    EXPECT_EQ(text(failures->front(), "command"), "capture");
    EXPECT_TRUE(flag(failures->front(), "informational"));
    rig.queue.advance(std::chrono::seconds(30));
    EXPECT_FALSE(rig.desktop.isTapListening()) << "nothing enables it again";
    rig.type("//note ");
    EXPECT_EQ(rig.text(), "x//note ") << "the session's keyboard goes on";

    rig.tap->start();
    rig.desktop.waitForTap();
    EXPECT_FALSE(rig.tap->isTapPermanentlyDisabled());
}

TEST(EventTapManager, WatchdogRevivesATapThatDiedSilently) {
    CaptureRig rig;
    rig.desktop.setRefusesEnabling(true);
    rig.desktop.disableTapByUserInput();
    rig.queue.advance(std::chrono::milliseconds(999));
    EXPECT_TRUE(rig.alerts.shown.empty());
    rig.queue.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(rig.alerts.shown.size(), 1U);
    rig.desktop.setRefusesEnabling(false);
    rig.queue.advance(std::chrono::seconds(3));
    EXPECT_TRUE(rig.desktop.isTapListening());
    EXPECT_TRUE(rig.logged("Event tap watchdog: Re-enabled tap after 2s cooldown."));

    rig.desktop.disableTapByUserInput();
    EXPECT_TRUE(rig.desktop.isTapListening()) << "at once";
    rig.queue.advance(std::chrono::seconds(1));
    EXPECT_EQ(rig.alerts.shown.size(), 1U) << "nothing is wrong";
    for (int i = 0; i < 3; ++i) { // It goes on watching.
        rig.desktop.setRefusesEnabling(true);
        rig.desktop.disableTapByUserInput();
        rig.desktop.setRefusesEnabling(false);
        rig.queue.advance(std::chrono::seconds(3));
        EXPECT_TRUE(rig.desktop.isTapListening()) << i;
    }
}

TEST(EventTapManager, WhatATransitionDoesNotKeep) {
    CaptureRig rig;
    rig.type("some words ");
    rig.desktop.type("//note ");
    ASSERT_TRUE(rig.router->isCaptureTransitionThreadSafe());
    EXPECT_FALSE(rig.tap->handleKeyEvent(key(keycode::shift))) << "it would stay pressed";
    KeyEvent late = key(0, "x");
    late.reachedHost = true;
    EXPECT_FALSE(rig.tap->handleKeyEvent(late));
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(0, "y")));
    rig.settle();
    EXPECT_EQ(rig.router->state().messageInput, "y") << "the other one is in the document";
}

TEST(EventTapManager, MissedKeysMakeTheTextUnknownUnlessTheOverlayHasThem) {
    CaptureRig rig;
    FakeSuggestions suggestions;
    rig.tap->setDelegate(&suggestions);
    rig.type("word //no");
    rig.tap->handleMissedKeys();
    EXPECT_EQ(rig.tap->typingContext().snapshot().slidingBuffer, "");
    rig.type("te ");
    EXPECT_FALSE(rig.overlay.isVisible());
    rig.desktop.type("//note ");
    rig.processing.runReady();
    rig.tap->handleMissedKeys();
    EXPECT_NE(rig.tap->typingContext().snapshot().slidingBuffer, "");
}

// A tap that asks beforehand gets told of every key that may be swallowed.
TEST(EventTapManager, AnnouncesEveryChordThatItSwallows) {
    for (unsigned state = 0; state < 32; ++state) {
        CaptureRig rig(false);
        FakeSuggestions suggestions;
        if (state & 1) rig.tap->setDelegate(&suggestions);
        rig.tap->isSuggestionsOverlayVisible = (state & 2) != 0;
        rig.tap->isPlaceholderModeActive = (state & 4) != 0;
        if (state & 8) {
            ASSERT_TRUE(rig.defaults.set("shortcutHasControl", false));
            ASSERT_TRUE(rig.defaults.set("shortcutHasShift", true));
            rig.tap->loadShortcutPreferences();
        }
        rig.tap->isAIPromptMode = (state & 16) != 0;
        if (state & 16) {
            EXPECT_EQ(rig.tap->keyInterest(), KeyInterest::everything);
            continue;
        }
        for (int code = 0; code < 128; ++code) {
            for (unsigned held = 0; held < 16; ++held) {
                const KeyChord chord{code, {(held & 1) != 0, (held & 2) != 0, (held & 4) != 0, (held & 8) != 0}};
                rig.tap->lastActionWasSuggestionWithTrailingSpace = (static_cast<unsigned>(code) + held) % 2 == 0;
                const auto chords = rig.tap->swallowableChords();
                const bool isKnown = std::any_of(chords.begin(), chords.end(), [&](const KeyChord& known) {
                    // Whatever is held with these: the tap holds them back as they are pressed alone.
                    const bool isSingle = code == keycode::tab || code == keycode::returnKey || code == keycode::space;
                    return known == chord || (isSingle && known == KeyChord{code, {}});
                });
                if (rig.tap->handleKeyEvent(key(code, code == keycode::space ? " " : "", chord.modifiers))) {
                    EXPECT_TRUE(isKnown) << "state " << state << ", key " << code << ", modifiers " << held;
                }
            }
        }
    }
}

TEST(EventTapManager, AppliesTheKeyTable) {
    const Modifiers control{.control = true};
    const struct {
        const char* name;
        std::function<void(EventTapManager&)> state;
        KeyEvent event;
        const char* notification;
        bool swallowed;
    } cases[] = {
        {"AI actions", {}, key(keycode::space, " ", {.control = true, .shift = true}), "TriggerAIQuickActions", true},
        {"manual", {}, key(keycode::space, " ", control), "TriggerManualSuggestions", true},
        {"manual and more",
         {},
         key(keycode::space, " ", {.control = true, .option = true}),
         "TriggerManualSuggestions",
         false},
        {"mute", {}, key(keycode::digit0, "0", control), "TogglePerAppMute", true},
        {"escape", {}, key(keycode::escape, "\x1b"), "EscapePlaceholderPressed", false},
        {"prompt left", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::leftArrow), "CycleAIActionLeft", true},
        {"prompt right", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::rightArrow), "CycleAIActionRight",
         true},
        {"prompt delete", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::deleteKey), "DeleteAIPromptChar",
         true},
        {"prompt escape", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::escape), "CancelAIPrompt", true},
        {"prompt return", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::returnKey, "\r"), "CommitAIPrompt",
         true},
        {"prompt text", [](auto& t) { t.isAIPromptMode = true; }, key(0, "a"), "AppendAIPromptChar", true},
        {"prompt dead key", [](auto& t) { t.isAIPromptMode = true; }, key(0, ""), "AppendAIPromptChar", true},
        {"prompt modifier", [](auto& t) { t.isAIPromptMode = true; }, key(keycode::rightOption), "", false},
        {"placeholder", [](auto& t) { t.isPlaceholderModeActive = true; }, key(keycode::tab, "\t"),
         "TabPlaceholderPressed", true},
        {"plain tab", {}, key(keycode::tab, "\t"), "", false},
    };
    for (const auto& row : cases) {
        CaptureRig rig(false);
        if (row.state) row.state(*rig.tap);
        const auto seen = rig.watch(row.notification);
        EXPECT_EQ(rig.tap->handleKeyEvent(row.event), row.swallowed) << row.name;
        rig.settle();
        const bool posts = *row.notification && (row.swallowed || row.event.keyCode == keycode::escape)
                           && std::string(row.name) != "prompt dead key";
        EXPECT_EQ(seen->size(), posts ? 1U : 0U) << row.name;
        if (std::string(row.name) == "prompt text") {
            EXPECT_EQ(text(seen->front(), "characters"), "a");
        }
    }
}

TEST(EventTapManager, SuggestionKeysGoToTheDelegate) {
    CaptureRig rig(false);
    FakeSuggestions suggestions;
    rig.tap->setDelegate(&suggestions);
    rig.tap->isSuggestionsOverlayVisible = true;
    for (const int code : {18, 19, 20, 21, 23, 22})
        EXPECT_TRUE(rig.tap->handleKeyEvent(key(code, "", {.control = true}))) << code;
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(keycode::tab)));
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(keycode::returnKey, "\r")));
    EXPECT_FALSE(rig.tap->handleKeyEvent(key(18, "1")));
    rig.settle();
    EXPECT_EQ(suggestions.done, "1 2 3 4 5 6 tab return ");
    EXPECT_EQ(suggestions.prefix, "1");

    EXPECT_FALSE(rig.tap->handleKeyEvent(key(7, "x", {.control = true})));
    EXPECT_FALSE(rig.tap->handleKeyEvent(key(keycode::unknown, "\u00e9")));
    rig.settle();
    EXPECT_EQ(suggestions.prefix, "1\u00e9") << "a shortcut types nothing, a key without a code does";
    rig.desktop.setSecureInput(true);
    rig.tap->handleKeyEvent(key(0, "s"));
    rig.desktop.setSecureInput(false);
    rig.tap->handleKeyEvent(key(0, "a"));
    rig.settle();
    EXPECT_EQ(suggestions.prefix, "a") << "a secret empties it";

    const auto placeholder = rig.watch("TabPlaceholderPressed");
    rig.tap->isPlaceholderModeActive = true;
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(keycode::tab, "\t")));
    rig.settle();
    EXPECT_EQ(placeholder->size(), 1U) << "the placeholder comes before the suggestion";

    ASSERT_TRUE(rig.defaults.set("shortcutHasControl", false));
    ASSERT_TRUE(rig.defaults.set("shortcutHasOption", true));
    rig.tap->loadShortcutPreferences();
    EXPECT_FALSE(rig.tap->handleKeyEvent(key(18, "", {.control = true})));
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(18, "", {.option = true})));
    ASSERT_TRUE(rig.defaults.set("shortcutHasOption", false)); // None chosen: Control after all.
    rig.tap->loadShortcutPreferences();
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(18, "", {.control = true})));

    rig.tap->start();
    ASSERT_TRUE(rig.defaults.set("shortcutHasCommand", true));
    rig.notifications.post("ShortcutPreferenceChanged");
    rig.settle();
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(18, "", {.command = true}))) << "told of while it runs";
}

TEST(EventTapManager, CleansUpTheSpaceAfterASuggestion) {
    CaptureRig rig;
    rig.type("word ");
    rig.tap->lastActionWasSuggestionWithTrailingSpace = true;
    rig.type(",");
    EXPECT_EQ(rig.text(), "word,");
    rig.tap->lastActionWasSuggestionWithTrailingSpace = true;
    rig.type(" ");
    EXPECT_EQ(rig.text(), "word,") << "no double space";
    rig.type(" x");
    EXPECT_EQ(rig.text(), "word, x");
}
} // namespace
} // namespace snipwren
