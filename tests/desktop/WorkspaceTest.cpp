#include <cstdlib>

#include <gtest/gtest.h>

#include "desktop/support/HostWindow.h"
#include "desktop/support/Typist.h"
#include "hosts/linux/x11/X11ScreenGeometry.h"
#include "hosts/linux/x11/X11Workspace.h"
#include "hosts/portable/DesktopOpener.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;

class WorkspaceTest : public testing::Test {
protected:
    bool frontIs(HostWindow& window, const std::string& bundleId) {
        return window.pumpUntil(
            [&] {
                const auto front = workspace->frontmostApplication();
                return front && front->bundleId == bundleId;
            },
            3000ms);
    }
    SecureInputState secureInput;
    DesktopOpener opener;
    std::atomic<bool> ownWindowIsKey = false;
    std::unique_ptr<X11Workspace> workspace = [this] {
        X11Workspace::Options options;
        options.isOwnWindowKey = [this] { return ownWindowIsKey.load(); };
        return std::make_unique<X11Workspace>(secureInput, opener, options);
    }();
};

TEST_F(WorkspaceTest, FollowsTheWindowInFrontAndBringsOneBack) {
    ASSERT_TRUE(workspace->start());
    HostWindow editor("SomeEditor");
    ASSERT_TRUE(editor.focus());
    ASSERT_TRUE(frontIs(editor, "SomeEditor"))
        << (workspace->frontmostApplication() ? workspace->frontmostApplication()->bundleId : "none");
    const auto first = workspace->frontmostApplication();
    EXPECT_EQ(first->processId, getpid());
    EXPECT_EQ(first->window, editor.window());

    HostWindow browser("Browser");
    ASSERT_TRUE(browser.focus());
    ASSERT_TRUE(frontIs(browser, "Browser"));
    workspace->activate(*first);
    EXPECT_TRUE(editor.pumpUntil([&] { return editor.hasFocus(); }, 3000ms));
    EXPECT_TRUE(frontIs(editor, "SomeEditor"));
}

TEST_F(WorkspaceTest, AGrabOrAPassphrasePromptIsSecureInput) {
    ASSERT_TRUE(workspace->start());
    HostWindow editor("SomeEditor");
    ASSERT_TRUE(editor.focus());
    ASSERT_TRUE(frontIs(editor, "SomeEditor"))
        << (workspace->frontmostApplication() ? workspace->frontmostApplication()->bundleId : "none");
    EXPECT_FALSE(workspace->isSecureInputEnabled());
    const auto grab = [&](bool on) {
        if (on) {
            const XcbOwned<xcb_grab_keyboard_reply_t> reply(
                xcb_grab_keyboard_reply(editor.connection(),
                                        xcb_grab_keyboard(editor.connection(), 0, rootWindow(editor.connection()),
                                                          XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                        nullptr));
            ASSERT_EQ(reply->status, XCB_GRAB_STATUS_SUCCESS);
        } else {
            xcb_ungrab_keyboard(editor.connection(), XCB_CURRENT_TIME);
            xcb_flush(editor.connection());
        }
    };
    grab(true);
    EXPECT_TRUE(editor.pumpUntil([&] { return workspace->isSecureInputEnabled(); }, 2000ms));
    grab(false);
    EXPECT_TRUE(editor.pumpUntil([&] { return !workspace->isSecureInputEnabled(); }, 2000ms));
    ownWindowIsKey = true;
    grab(true);
    editor.settle(150ms);
    EXPECT_FALSE(workspace->isSecureInputEnabled()) << "our own overlay";
    grab(false);
    ownWindowIsKey = false;

    HostWindow prompt("pinentry-gtk-2");
    ASSERT_TRUE(prompt.focus());
    EXPECT_TRUE(prompt.pumpUntil([&] { return workspace->isSecureInputEnabled(); }, 2000ms));
}

TEST(ScreenGeometry, KnowsTheScreenAndThePointer) {
    const X11ScreenGeometry geometry;
    const std::vector<Screen> screens = geometry.screens();
    ASSERT_EQ(screens.size(), 1U);
    EXPECT_EQ(screens[0].frame, (Rect{0, 0, 1280, 800}));
    EXPECT_EQ(screens[0].visibleFrame, (Rect{0, 0, 1280, 800}));
    EXPECT_EQ(screens[0].scale, 1);
    ASSERT_EQ(std::system("echo 'Xft.dpi: 192' | xrdb -merge"), 0);
    EXPECT_EQ(geometry.screens().at(0).scale, 2);
    ASSERT_EQ(std::system("echo 'Xft.dpi: nonsense' | xrdb -merge"), 0);
    EXPECT_EQ(geometry.screens().at(0).scale, 1);

    Typist hand;
    xcb_warp_pointer(hand.connection(), XCB_NONE, rootWindow(hand.connection()), 0, 0, 0, 0, 123, 45);
    hand.sync();
    EXPECT_EQ(geometry.mouseLocation(), (Point{123, 45}));
}
} // namespace
} // namespace snipwren
