#include <cstdlib>

#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include "desktop/support/HostWindow.h"
#include "desktop/support/RunningTap.h"
#include "desktop/support/Typist.h"
#include "hosts/linux/x11/X11SyntheticKeyboard.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;

/// Keycodes of the test server's keyboard.
namespace x {
constexpr std::uint8_t backSpace = 22, control = 37, alt = 64, space = 65, capsLock = 66, numLock = 77,
                       keypadDivide = 106, altGr = 108, tab = 23, zero = 19;
} // namespace x

void setLayout(const std::string& arguments) { ASSERT_EQ(std::system(("setxkbmap " + arguments).c_str()), 0); }

class KeyboardTapTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(host.focus());
        host.clear();
    }
    void TearDown() override { setLayout("-layout us -option ''"); }

    HostWindow host;
    Typist typist;
    RecordingListener listener;
};

std::string plainText(int characters) {
    std::string text;
    const std::string sample = "The quick brown fox jumps over 13 lazy dogs; a+b (c) \"d\" & e?\n";
    while (static_cast<int>(text.size()) < characters) text += sample;
    text.resize(static_cast<std::size_t>(characters));
    return text;
}

TEST_F(KeyboardTapTest, OrdinaryTextArrivesUntouchedAndUnseenAtFullSpeed) {
    const RunningTap tap(listener);
    ASSERT_TRUE(tap.tap) << tap.error;
    const std::string text = plainText(4000);
    typist.type(text);
    EXPECT_TRUE(host.waitForText(text)) << host.text().size();
    host.settle();
    EXPECT_EQ(host.focusOuts(), 0) << "an ordinary key takes the focus from nobody";
    EXPECT_TRUE(listener.observed() == text);
    EXPECT_EQ(listener.missed, 1) << "when it was switched on";
}

TEST_F(KeyboardTapTest, SwallowsEveryTriggerOfOneBurstWhenEverySlashIsGrabbed) {
    X11KeyboardTap::Options options;
    options.grabEverySlash = true;
    const RunningTap tap(listener, options);
    std::string typed, wanted;
    for (int i = 0; i < 300; ++i) {
        typed += "a//note b/c https://x.y //slack\n";
        wanted += "a//noteb/c https://x.y //slack";
    }
    typist.type(typed);
    EXPECT_TRUE(host.waitForText(wanted)) << host.text().size() << " of " << wanted.size();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.count(false) == 600; }, 1000ms)) << listener.count(false);
    EXPECT_EQ(listener.count(true), 0U);
    EXPECT_TRUE(listener.observed() == typed) << "what the tap understood";
}

TEST_F(KeyboardTapTest, SwallowsTriggersAtATypistsSpeedAndTellsOfLateOnes) {
    X11KeyboardTap::Options options;
    const RunningTap tap(listener, options);
    for (int i = 0; i < 10; ++i) typist.type("x//Note ", 20ms);
    EXPECT_TRUE(host.pumpUntil([&] { return listener.triggers().size() == 10; }, 2000ms));
    // On a machine under heavy load one or the other may be late; each is told for what it is.
    EXPECT_GE(listener.count(false), 5U);
    const std::size_t lateBefore = listener.count(true);
    EXPECT_TRUE(host.pumpUntil([&] { return host.text().size() == 70 + lateBefore; }, 2000ms)) << host.text();
    std::string burst;
    for (int i = 0; i < 50; ++i) burst += "y//copy ";
    host.clear();
    typist.type(burst);
    host.settle(300ms);
    // Each one is told: those that came too late with the Space in the document, the others without.
    EXPECT_EQ(listener.triggers().size(), 60U);
    const std::size_t late = listener.count(true) - lateBefore;
    EXPECT_EQ(host.text().size(), burst.size() - (50 - late));
    EXPECT_EQ(listener.observed().substr(listener.observed().size() - burst.size()), burst);
}

TEST_F(KeyboardTapTest, AClickOrAShortcutInsideATriggerMakesItNone) {
    constexpr std::uint8_t control = 37;
    constexpr std::uint8_t w = 25;
    const RunningTap tap(listener);
    const std::function<void()> breaks[] = {[&] { typist.click(); }, [&] { typist.chord(control, w); }};
    for (const auto& breakOff : breaks) {
        typist.type("//no", 20ms);
        breakOff();
        host.settle(50ms);
        typist.type("te ", 20ms);
        host.settle(100ms);
        EXPECT_TRUE(listener.triggers().empty());
    }
    EXPECT_EQ(listener.clicks, 1);
    typist.type("//no", 20ms);
    typist.click(4); // The wheel moves no caret.
    typist.type("te ", 20ms);
    EXPECT_TRUE(host.pumpUntil([&] { return listener.triggers().size() == 1; }, 2000ms));
}

TEST_F(KeyboardTapTest, TriggersWorkUnderLocksLayoutsAndTheKeypad) {
    X11KeyboardTap::Options options;
    const RunningTap tap(listener, options);
    std::size_t expected = 0;
    const auto expectTrigger = [&](const char* what) {
        ++expected;
        EXPECT_TRUE(host.pumpUntil([&] { return listener.count(false) == expected; }, 1000ms))
            << what << ": " << listener.observed() << ", late: " << listener.count(true);
    };
    for (const std::uint8_t lock : {x::capsLock, x::numLock}) {
        typist.tap(lock);
        typist.type("//note ", 20ms);
        expectTrigger(lock == x::capsLock ? "Caps Lock" : "Num Lock");
        typist.tap(lock);
        typist.sync();
    }
    typist.tap(x::keypadDivide);
    typist.type("", 0us);
    std::this_thread::sleep_for(5ms);
    typist.tap(x::keypadDivide);
    typist.sync();
    std::this_thread::sleep_for(5ms);
    typist.type("note\n", 20ms);
    expectTrigger("keypad");

    // Changed while the tap runs: the slash is Shift+7 now, and the second layout's is where it was.
    setLayout("-layout de,us");
    host.loadLayout();
    host.settle();
    typist.type("&&note ", 20ms);
    expectTrigger("German slash");
    typist.type("&&calc ", 20ms);
    expectTrigger("German again");

    setLayout("-layout us,de -option grp:caps_toggle");
    host.loadLayout();
    host.settle();
    typist.tap(x::capsLock); // Second group.
    typist.sync();
    host.settle(50ms);
    host.clear();
    typist.type("zy&&timer ", 20ms);
    expectTrigger("second group");
    EXPECT_EQ(host.text(), "yz//timer") << "a key that passed through a grab keeps its group";
    typist.tap(x::capsLock);
    typist.sync();
}

TEST_F(KeyboardTapTest, UnderstandsDeadKeysAltGrAndCompose) {
    setLayout("-layout de -option compose:menu");
    host.loadLayout();
    const RunningTap tap(listener);
    typist.tap(21); // dead_acute
    typist.type("e", 2ms);
    typist.chord(x::altGr, 24); // @
    typist.chord(x::altGr, 26); // €
    typist.tap(135);            // Compose
    typist.type("oe", 2ms);
    typist.type("z", 2ms);
    EXPECT_TRUE(host.pumpUntil([&] { return listener.observed() == "é@€œy"; }, 2000ms)) << listener.observed();
}

TEST_F(KeyboardTapTest, AHangingListenerCostsNobodyAKey) {
    X11KeyboardTap::Options options;
    options.answerLimit = 200ms;
    const RunningTap tap(listener, options);
    typist.type("a/", 20ms);
    host.settle(50ms);
    listener.stallMilliseconds = 1500;
    const auto start = std::chrono::steady_clock::now();
    typist.type("/note bcd", 20ms);
    EXPECT_TRUE(host.waitForText("a//note bcd", 1000ms)) << host.text();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
    EXPECT_FALSE(tap.tap->isEnabled()) << "off until somebody switches it on again";
    EXPECT_TRUE(host.pumpUntil([&] { return listener.timeouts == 1; }, 3000ms));
    tap.tap->setEnabled(true);
    host.settle(50ms);
    host.clear();
    typist.type("//note ", 20ms);
    EXPECT_TRUE(host.waitForText("//note", 1000ms)) << host.text() << ", understood: " << listener.observed();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.count(false) == 1; }, 1000ms)) << listener.count(true);
}

TEST_F(KeyboardTapTest, WhatAnotherProgramReadsUnderItsOwnGrabIsNoTrigger) {
    X11KeyboardTap::Options options;
    const RunningTap tap(listener, options);
    typist.type("//not", 20ms);
    HostWindow prompt;
    prompt.focus();
    const XcbOwned<xcb_grab_keyboard_reply_t> grabbed(
        xcb_grab_keyboard_reply(prompt.connection(),
                                xcb_grab_keyboard(prompt.connection(), 0, prompt.window(), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    ASSERT_EQ(grabbed->status, XCB_GRAB_STATUS_SUCCESS);
    typist.type("e //copy ", 20ms);
    EXPECT_TRUE(prompt.waitForText("e //copy "));
    EXPECT_TRUE(listener.triggers().empty());
    EXPECT_GT(listener.missed, 1);
    xcb_ungrab_keyboard(prompt.connection(), XCB_CURRENT_TIME);
    roundTrip(prompt.connection());
    typist.type("//note ", 20ms);
    EXPECT_TRUE(prompt.pumpUntil([&] { return listener.count(false) == 1; }, 1000ms));
}

TEST_F(KeyboardTapTest, DuringATransitionOnlyOurOwnBackspacesReachTheHost) {
    X11KeyboardTap::Options options;
    options.grabEverySlash = true;
    RunningTap tap(listener, options);
    X11SyntheticKeyboard keyboard(tap.ownKeys);
    listener.openTransitions = true;
    typist.type("Hello, //note ", 2ms);
    ASSERT_TRUE(host.pumpUntil([&] { return listener.transition.load(); }, 1000ms));
    // The user goes on typing, a Backspace among it, while the trigger is removed.
    std::thread user([] {
        Typist hands;
        for (int i = 0; i < 20; ++i) hands.type("bu\by", 1ms);
    });
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(keyboard.pressKey(keycode::deleteKey, {}));
        std::this_thread::sleep_for(2500us);
    }
    user.join();
    EXPECT_TRUE(host.waitForText("Hello, ", 1000ms)) << host.text();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.keys() == 14 + 80; }, 1000ms)) << listener.keys();
    EXPECT_EQ(host.deletions(), 6);
    listener.transition = false;
    host.settle(150ms);
    typist.type("x//copy", 2ms);
    EXPECT_TRUE(host.waitForText("Hello, x//copy", 1000ms)) << "the keyboard is back: " << host.text();
}

TEST_F(KeyboardTapTest, OwnKeysNeverComeBack) {
    RunningTap tap(listener);
    X11SyntheticKeyboard keyboard(tap.ownKeys);
    EXPECT_TRUE(keyboard.typeText("Ab/ //note \n{"));
    EXPECT_TRUE(host.waitForText("Ab/ //note \n{", 1000ms)) << host.text();
    EXPECT_FALSE(keyboard.typeText("ab\u4e2d")) << "nothing is typed when a character is not on the layout";
    constexpr int keyOfS = 1;
    EXPECT_TRUE(keyboard.pressKey(keyOfS, {.control = true}));
    EXPECT_TRUE(host.pumpUntil([&] { return host.shortcuts() == 1; }, 1000ms)) << "a shortcut stays one";
    typist.type("q");
    EXPECT_TRUE(host.waitForText("Ab/ //note \n{q", 1000ms)) << host.text();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.observed() == "q"; }, 1000ms)) << listener.observed();
}

TEST_F(KeyboardTapTest, OwnKeysWaitForTheUsersModifiers) {
    RunningTap tap(listener);
    X11SyntheticKeyboard keyboard(tap.ownKeys);
    typist.type("abc");
    typist.down(x::control);
    typist.sync();
    std::thread release([this] {
        std::this_thread::sleep_for(100ms);
        typist.up(x::control);
        typist.sync();
    });
    EXPECT_TRUE(keyboard.pressKey(keycode::deleteKey, {}));
    release.join();
    EXPECT_TRUE(host.waitForText("ab", 1000ms)) << host.text();
}

TEST_F(KeyboardTapTest, AKeyHeldDownMakesTheTextUnknown) {
    RunningTap tap(listener);
    typist.type("//noteee", 2ms);
    typist.down(x::backSpace);
    typist.flush();
    host.pumpUntil([&] { return host.deletions() >= 4; }, 3000ms);
    typist.up(x::backSpace);
    typist.sync();
    host.settle(50ms);
    EXPECT_GT(listener.missed, 1);
    typist.type("te ", 20ms);
    host.settle(50ms);
    EXPECT_TRUE(listener.triggers().empty()) << "nobody knows what was left";
}

TEST_F(KeyboardTapTest, ASwallowedKeyThatIsHeldIsOnePress) {
    RunningTap tap(listener);
    listener.openTransitions = true;
    typist.type("//note", 20ms);
    typist.down(x::space);
    typist.flush();
    host.settle(1200ms); // It repeats after 660.
    typist.up(x::space);
    typist.type("b", 20ms);
    EXPECT_TRUE(host.pumpUntil([&] { return !listener.kept().empty(); }, 1000ms));
    EXPECT_EQ(listener.kept(), "b");
    EXPECT_EQ(host.text(), "//note");
}

TEST_F(KeyboardTapTest, ChordsAreSwallowedAndTheWindowManagersKeysAreLeftAlone) {
    listener.chords = {{keycode::space, {.control = true}}, {keycode::digit0, {.control = true}}};
    RunningTap tap(listener);
    typist.type("a");
    typist.chord(x::control, x::space);
    typist.chord(x::control, x::zero);
    typist.type("b c", 2ms);
    EXPECT_TRUE(host.waitForText("ab c", 1000ms)) << host.text();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.chordsPressed() == 2; }, 1000ms));
    // Told of a change, it lets go of one and takes another.
    listener.chords = {{keycode::tab, {}}};
    tap.tap->interestChanged({});
    host.settle(50ms);
    typist.tap(x::tab);
    typist.sync();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.chordsPressed() == 3; }, 1000ms));

    HostWindow other;
    ASSERT_TRUE(other.focus());
    host.settle(50ms);
    ASSERT_FALSE(host.hasFocus());
    typist.down(x::alt);
    typist.sync();
    host.settle(100ms);
    typist.tap(x::tab);
    typist.sync();
    host.settle(100ms);
    typist.up(x::alt);
    typist.sync();
    EXPECT_TRUE(host.pumpUntil([&] { return host.hasFocus(); }, 2000ms)) << "Alt+Tab";
}

TEST_F(KeyboardTapTest, ComesBackAfterItsConnectionIsLost) {
    RunningTap tap(listener);
    std::thread([this] {
        // Every connection that has an input-only window of ours at 0,0 is the tap's.
        const XcbOwned<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
            typist.connection(), xcb_query_tree(typist.connection(), rootWindow(typist.connection())), nullptr));
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
            const XcbOwned<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
                typist.connection(), xcb_get_window_attributes(typist.connection(), children[i]), nullptr));
            const XcbOwned<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(
                typist.connection(), xcb_get_geometry(typist.connection(), children[i]), nullptr));
            if (attributes && attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY && geometry && geometry->width == 1
                && geometry->x == 0 && geometry->y == 0 && !attributes->override_redirect)
                xcb_kill_client(typist.connection(), children[i]);
        }
        typist.sync();
    }).join();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.disabled == 1; }, 2000ms));
    host.settle(100ms);
    EXPECT_TRUE(tap.tap->isEnabled());
    typist.type("//note ", 20ms);
    EXPECT_TRUE(host.waitForText("//note", 1000ms)) << host.text() << ", understood: " << listener.observed();
    EXPECT_TRUE(host.pumpUntil([&] { return listener.count(false) == 1; }, 1000ms)) << listener.count(true);
}
} // namespace
} // namespace snipwren
