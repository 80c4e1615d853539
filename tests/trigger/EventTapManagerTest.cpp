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
        const bool posts = *row.notification && !(std::string(row.name) == "prompt dead key");
        EXPECT_EQ(seen->size(), posts ? 1U : 0U) << row.name;
        if (std::string(row.name) == "prompt text") {
            EXPECT_EQ(text(seen->front(), "characters"), "a");
        }
    }
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

    ASSERT_TRUE(rig.defaults.set("shortcutHasControl", false));
    ASSERT_TRUE(rig.defaults.set("shortcutHasOption", true));
    rig.tap->loadShortcutPreferences();
    EXPECT_FALSE(rig.tap->handleKeyEvent(key(18, "", {.control = true})));
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(18, "", {.option = true})));
    ASSERT_TRUE(rig.defaults.set("shortcutHasOption", false)); // None chosen: Control after all.
    rig.tap->loadShortcutPreferences();
    EXPECT_TRUE(rig.tap->handleKeyEvent(key(18, "", {.control = true})));
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
