#include <algorithm>

#include <QAccessible>
#include <QGuiApplication>
#include <QScreen>
#include <gtest/gtest.h>

#include "desktop/FieldHost.h"
#include "desktop/support/Pump.h"
#include "desktop/support/Typist.h"
#include "hosts/linux/x11/X11ActiveWindow.h"
#include "shell/CaptureOverlayWindow.h"

namespace snipwren {
namespace {
class NamedTarget final : public CaptureTarget {
public:
    NamedTarget(std::string name, bool picker) : name_(std::move(name)), picker_(picker) {}
    const std::string& commandName() const override { return name_; }
    bool needsPicker() const override { return picker_; }
    const CaptureTargetHint* hint() const override { return &words_; }
    Result<CaptureReceipt, CaptureError> send(const std::string&, const std::optional<PickerOption>&,
                                              CaptureAttempt&) override {
        return CaptureReceipt();
    }

private:
    static constexpr CaptureTargetHint words_{"A TARGET", "What it does with a text", "for example", "Filter"};
    const std::string name_;
    const bool picker_;
};

/// An overlay with the simplest controller behind it.
class OverlayTest : public testing::Test, public CaptureOverlayListener {
protected:
    OverlayTest() { overlay.setListener(this); }

    void overlayDidBecomeKey() override { ++becameKey; }
    void handleMessageInputChange(const std::string& text) override {
        state.messageInput = text;
        overlay.update(state);
    }
    void commitCapture() override {
        committed.push_back(state.messageInput);
        close();
    }
    void cancelCapture() override {
        ++cancelled;
        close();
    }
    void moveSelection(int rows) override { moved += rows; }
    bool handleDeleteOnEmptyInput() override { return ++deletedOnEmpty > 0; }
    void acceptOfferedText() override { ++accepted; }
    void handleOverlayKey(const KeptKey& key) override { late += key.characters; }
    void overlayDidReturnKeyboard() override {
        lateWhenReturned = late;
        ++returned;
    }

    void open(CaptureTarget& target, const Rect& anchor = {300, 300, 1, 20}) {
        state = CaptureState();
        state.currentTarget = &target;
        overlay.update(state);
        overlay.present(anchor);
    }
    void close() {
        state = CaptureState();
        overlay.update(state);
        overlay.dismiss();
    }
    QLineEdit& field() { return *overlay.findChild<QLineEdit*>("field"); }

    NamedTarget note{"note", false};
    NamedTarget slack{"slack", true};
    CaptureState state;
    CaptureOverlayWindow overlay{Appearance(Appearance::Scheme::light)};
    int becameKey = 0;
    int cancelled = 0;
    int moved = 0;
    int accepted = 0;
    int deletedOnEmpty = 0;
    std::vector<std::string> committed;
    std::string late;
    int returned = 0;
    std::string lateWhenReturned;
    Typist typist;
};

TEST_F(OverlayTest, TakesEveryKeyFromTheMomentItHasTheKeyboardAndLeavesTheHostItsFocus) {
    for (const auto toolkit : {FieldHost::Toolkit::gtk3, FieldHost::Toolkit::qt}) {
        SCOPED_TRACE(FieldHost::name(toolkit));
        FieldHost host(toolkit);
        ASSERT_TRUE(host.isReady());
        host.focus("entry");
        X11ActiveWindow windows;
        std::optional<ActiveWindow> before;
        ASSERT_TRUE(pumpUntil([&] { return (before = windows.activeWindow()).has_value(); }));
        committed.clear();
        late.clear();
        std::string expectedInHost;
        for (int round = 0; round < 10; ++round) {
            becameKey = returned = 0;
            open(note);
            ASSERT_TRUE(pumpUntil([&] { return becameKey == 1; }));
            EXPECT_TRUE(overlay.hasKeyboard());
            // All at once, and what follows Return belongs to the host again.
            typist.type("buy milk\nmore");
            ASSERT_TRUE(pumpUntil([&] { return committed.size() == static_cast<std::size_t>(round) + 1; }));
            EXPECT_EQ(committed.back(), "buy milk");
            EXPECT_FALSE(overlay.hasKeyboard());
            ASSERT_TRUE(pumpUntil([&] { return returned == 1; }));
            EXPECT_FALSE(overlay.isVisible());
            EXPECT_EQ(windows.activeWindow().value_or(ActiveWindow{}).window, before->window);
            expectedInHost += "more";
            // Keys that were on their way to the overlay are given back by the controller; none comes behind the word
            // that these were all.
            pumpUntil([] { return false; }, std::chrono::milliseconds(20));
            EXPECT_EQ(late, lateWhenReturned);
            typist.type(late);
            late.clear();
        }
        EXPECT_TRUE(pumpUntil([&] { return host.get("entry") == expectedInHost; })) << host.get("entry");
        EXPECT_TRUE(
            std::all_of(committed.begin(), committed.end(), [](const auto& text) { return text == "buy milk"; }));
    }
}

TEST_F(OverlayTest, IsWorkedByTheKeyboardAlone) {
    state.offeredText = "earlier";
    open(slack);
    state.pickerOptions = {{"1", "#general"}, {"2", "#random"}, {"3", "@ana"}};
    state.shownOptions = state.pickerOptions;
    state.selectedOption = state.shownOptions[1];
    overlay.update(state);
    ASSERT_TRUE(pumpUntil([&] { return becameKey == 1; }));
    auto* const choices = overlay.findChild<QListWidget*>("choices");
    ASSERT_TRUE(choices);
    EXPECT_TRUE(choices->isVisible());
    EXPECT_EQ(choices->currentRow(), 1);
    typist.tap(116); // Down
    typist.tap(116);
    typist.tap(111); // Up
    typist.type("\t\b");
    EXPECT_TRUE(pumpUntil([&] { return deletedOnEmpty == 1; }));
    EXPECT_EQ(moved, 1);
    EXPECT_EQ(accepted, 1);
    typist.type("a\b");
    EXPECT_TRUE(pumpUntil([&] { return field().text().isEmpty() && deletedOnEmpty == 1; }));
    typist.type("\x1b");
    EXPECT_TRUE(pumpUntil([&] { return cancelled == 1; }));
}

TEST_F(OverlayTest, WaitsForAKeyboardThatSomebodyElseHoldsForAMoment) {
    const XcbConnection other = connectToDisplay();
    const auto grab = [&] {
        return XcbOwned<xcb_grab_keyboard_reply_t>(
            xcb_grab_keyboard_reply(other.get(),
                                    xcb_grab_keyboard(other.get(), 0, rootWindow(other.get()), XCB_CURRENT_TIME,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                    nullptr));
    };
    ASSERT_EQ(grab()->status, XCB_GRAB_STATUS_SUCCESS);
    open(note);
    EXPECT_FALSE(pumpUntil([&] { return becameKey > 0; }, std::chrono::milliseconds(150)));
    EXPECT_FALSE(overlay.hasKeyboard());
    xcb_ungrab_keyboard(other.get(), XCB_CURRENT_TIME);
    xcb_flush(other.get());
    EXPECT_TRUE(pumpUntil([&] { return becameKey == 1; }));
    close();
    // And gives it back.
    EXPECT_TRUE(pumpUntil([&] { return grab()->status == XCB_GRAB_STATUS_SUCCESS; }));
}

TEST_F(OverlayTest, AClickBesideItOrALockerClosesIt) {
    open(note);
    ASSERT_TRUE(pumpUntil([&] { return becameKey == 1; }));
    // The toolkit counts in units of its own, the server in pixels.
    const QPoint inside = overlay.geometry().center() * overlay.devicePixelRatio();
    const auto click = [&](int x, int y) {
        xcb_test_fake_input(typist.connection(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME,
                            rootWindow(typist.connection()), static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                            0);
        xcb_test_fake_input(typist.connection(), XCB_BUTTON_PRESS, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_test_fake_input(typist.connection(), XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        typist.sync();
    };
    click(inside.x(), inside.y());
    EXPECT_FALSE(pumpUntil([&] { return cancelled > 0; }, std::chrono::milliseconds(200)));
    click(5, 5);
    EXPECT_TRUE(pumpUntil([&] { return cancelled == 1; }));
    EXPECT_FALSE(overlay.hasKeyboard());

    open(note);
    ASSERT_TRUE(pumpUntil([&] { return becameKey == 2; }));
    xcb_connection_t* const c = typist.connection();
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t locker = xcb_generate_id(c);
    const std::uint32_t overrideRedirect = 1;
    xcb_create_window(c, XCB_COPY_FROM_PARENT, locker, screen->root, 0, 0, screen->width_in_pixels,
                      screen->height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect);
    xcb_map_window(c, locker);
    typist.sync();
    EXPECT_TRUE(pumpUntil([&] { return cancelled == 2; }));
    xcb_destroy_window(c, locker);
    typist.sync();
}

TEST_F(OverlayTest, StaysInsideTheVisibleFrameAndGrowsWithItsContents) {
    const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
    const double scale = QGuiApplication::primaryScreen()->devicePixelRatio();
    for (const Rect& anchor :
         {Rect{300, 300, 1, 20}, Rect{1270, 790, 1, 16}, Rect{0, 0, 0, 0}, Rect{640, 780, 1, 18}}) {
        open(slack, {anchor.x * scale, anchor.y * scale, anchor.width * scale, anchor.height * scale});
        for (int i = 0; i < 30; ++i)
            state.pickerOptions.push_back({std::to_string(i), "#channel-" + std::to_string(i)});
        state.shownOptions = state.pickerOptions;
        state.selectedOption = state.shownOptions[17];
        overlay.update(state);
        ASSERT_TRUE(pumpUntil([&] { return overlay.hasKeyboard(); }));
        EXPECT_TRUE(visible.contains(overlay.frameGeometry())) << anchor.x << "," << anchor.y;
        EXPECT_FALSE(overlay.frameGeometry().contains(QPoint(int(anchor.x), int(anchor.y)))) << "it covers the caret";
        auto* const choices = overlay.findChild<QListWidget*>("choices");
        EXPECT_TRUE(choices->viewport()->rect().intersects(choices->visualItemRect(choices->currentItem())));
        const int tall = overlay.height();
        state.isTargetConfirmed = true;
        state.confirmedTarget = state.selectedOption;
        overlay.update(state);
        EXPECT_LT(overlay.height(), tall);
        close();
        ASSERT_TRUE(pumpUntil([&] { return !overlay.isVisible(); }));
    }
}

TEST_F(OverlayTest, TellsAScreenReaderWhatItShows) {
    open(slack);
    state.shownOptions = state.pickerOptions = {{"1", "#general"}};
    state.selectedOption = state.shownOptions[0];
    overlay.update(state);
    QAccessibleInterface* const interface = QAccessible::queryAccessibleInterface(&field());
    ASSERT_TRUE(interface);
    EXPECT_EQ(interface->text(QAccessible::Name), "Filter of the choices");
    EXPECT_EQ(interface->text(QAccessible::Description), "Selected: #general");
    EXPECT_FALSE(overlay.accessibleName().isEmpty());
    close();
}

/// Text that came from a target or was typed must never be taken for markup or cut off in silence.
TEST_F(OverlayTest, ShowsForeignTextAsItIs) {
    open(slack);
    state.shownOptions = state.pickerOptions = {{"1", "<b>#bold</b> & co"}};
    overlay.update(state);
    EXPECT_EQ(overlay.findChild<QListWidget*>("choices")->item(0)->text(), "<b>#bold</b> & co");
    state.isTargetConfirmed = true;
    state.confirmedTarget = state.pickerOptions[0];
    overlay.update(state);
    EXPECT_EQ(overlay.findChild<QLabel*>("subtitle")->text(), "To <b>#bold</b> & co");
    EXPECT_EQ(overlay.findChild<QLabel*>("subtitle")->textFormat(), Qt::PlainText);
    const QString longText(200'000, 'x');
    field().setText(longText);
    EXPECT_EQ(state.messageInput.size(), 200'000u);
    close();
}

TEST_F(OverlayTest, Pictures) {
    NamedTarget calc("calc", false);
    const auto picture = [&](const char* name) {
        overlay.update(state);
        ASSERT_TRUE(pumpUntil([&] { return overlay.hasKeyboard(); }));
        EXPECT_GT(overlay.height(), 60);
        keepPicture(overlay, name);
        close();
    };
    for (const auto scheme : {Appearance::Scheme::light, Appearance::Scheme::dark}) {
        const std::string suffix = scheme == Appearance::Scheme::dark ? "-dark" : "";
        overlay.setAppearance(Appearance(scheme));
        open(note);
        state.messageInput = "buy milk";
        picture(("overlay" + suffix).c_str());
        open(slack);
        state.pickerOptions = {{"1", "#general"}, {"2", "#deployments"}, {"3", "@ana"}, {"4", "@bruno"}};
        state.shownOptions = state.pickerOptions;
        state.selectedOption = state.shownOptions[1];
        picture(("picker" + suffix).c_str());
        open(calc);
        state.messageInput = "15% of 847";
        state.calcLivePreviewText = "127.05";
        picture(("preview" + suffix).c_str());
        open(slack);
        picture(("picker-empty" + suffix).c_str());
    }
}
} // namespace
} // namespace snipwren
