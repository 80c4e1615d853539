#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QThread>
#include <gtest/gtest.h>

#include "desktop/support/Pump.h"
#include "shell/DesktopNotices.h"
#include "shell/QtAlertPresenter.h"
#include "shell/QtMainQueue.h"
#include "shell/QtPasteboard.h"
#include "shell/SingleInstance.h"
#include "shell/StatusItem.h"

namespace snipwren {
namespace {
using std::chrono::milliseconds;

TEST(QtMainQueue, RunsTasksOfAllThreadsInOrderOnTheMainThread) {
    QtMainQueue queue;
    std::vector<int> seen;
    std::thread other([&] {
        for (int i = 0; i < 1000; ++i)
            queue.async([&seen, &queue, i] {
                EXPECT_TRUE(queue.isCurrent());
                seen.push_back(i);
            });
        EXPECT_FALSE(queue.isCurrent());
        queue.sync([&] { seen.push_back(-1); });
    });
    EXPECT_TRUE(pumpUntil([&] { return seen.size() == 1001; }));
    other.join();
    ASSERT_EQ(seen.size(), 1001u);
    EXPECT_EQ(seen.back(), -1);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end() - 1));
}

TEST(QtMainQueue, DelayedTasksComeNotTooEarlyAndACancelledOneNever) {
    QtMainQueue queue;
    const auto start = std::chrono::steady_clock::now();
    milliseconds after{-1};
    bool cancelledRan = false;
    queue.asyncAfter(milliseconds(30), [&] {
        after = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
    });
    const auto timer = queue.asyncAfter(milliseconds(10), [&] { cancelledRan = true; });
    EXPECT_TRUE(queue.cancel(timer));
    EXPECT_FALSE(queue.cancel(timer));
    EXPECT_TRUE(pumpUntil([&] { return after.count() >= 0; }));
    EXPECT_GE(after.count(), 30);
    EXPECT_FALSE(cancelledRan);
    EXPECT_FALSE(queue.cancel(12345));
}

TEST(QtPasteboard, HoldsExactlyTheText) {
    QtPasteboard pasteboard;
    const std::string text = "a <b> \xF0\x9F\x98\x80\nsecond line\t.";
    ASSERT_TRUE(pasteboard.setString(text));
    EXPECT_EQ(pasteboard.string(), text);
    // Another program sees it too.
    QProcess reader;
    reader.start("/usr/bin/python3",
                 {"-c", "import gi\ngi.require_version('Gtk','3.0')\n"
                        "from gi.repository import Gtk,Gdk\n"
                        "print(Gtk.Clipboard.get(Gdk.SELECTION_CLIPBOARD).wait_for_text(),end='')"});
    EXPECT_TRUE(pumpUntil([&] { return reader.state() == QProcess::NotRunning; }));
    EXPECT_EQ(reader.readAllStandardOutput().toStdString(), text);
    pasteboard.clear();
    EXPECT_NE(pasteboard.string(), text);
}

TEST(QtAlertPresenter, AnswersTheButtonAndShowsForeignTextAsItIs) {
    QtAlertPresenter presenter;
    const auto box = [] {
        QMessageBox* found = nullptr;
        pumpUntil([&] {
            for (QWidget* widget : QApplication::topLevelWidgets())
                if (auto* one = qobject_cast<QMessageBox*>(widget); one && one->isVisible()) found = one;
            return found != nullptr;
        });
        return found;
    };
    int answer = -2;
    presenter.present({Alert::Style::critical, "Title", "<b>text</b>", {"Open Settings", "Cancel"}},
                      [&](int chosen) { answer = chosen; });
    QMessageBox* shown = box();
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->informativeText(), "<b>text</b>");
    EXPECT_EQ(shown->textFormat(), Qt::PlainText);
    shown->buttons().first()->click();
    EXPECT_TRUE(pumpUntil([&] { return answer == 0; }));
    presenter.present({Alert::Style::informational, "Title", "text", {"Yes", "No"}},
                      [&](int chosen) { answer = chosen; });
    shown = box();
    ASSERT_TRUE(shown);
    shown->reject(); // Closed without a choice.
    EXPECT_TRUE(pumpUntil([&] { return answer == -1; })) << answer;
}

/// The cards that are on the screen, oldest first.
std::vector<QWidget*> cards() {
    std::vector<QWidget*> found;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->objectName() == "notice" && widget->isVisible()) found.push_back(widget);
    std::sort(found.begin(), found.end(), [](QWidget* a, QWidget* b) { return a->y() < b->y(); });
    return found;
}

class DesktopNoticesTest : public testing::Test {
protected:
    QtMainQueue queue;
    NotificationCenter center{queue};
    NoticePanel panel{Appearance(Appearance::Scheme::light)};
    std::vector<std::string> revealed;
    std::string openedSettings;
    DesktopNotices notices{
        {panel, queue, center, [this](const std::string& path) { revealed.push_back(path); },
         [this](const std::string& section, const std::string& field) { openedSettings = section + "/" + field; },
         [this](const std::string& captureId) { undone = captureId; }}};
    std::string undone;

    static QPushButton* button(QWidget* card) { return card->findChild<QPushButton*>(); }
    static std::string textOf(QWidget* card) {
        std::string all;
        for (const QLabel* label : card->findChildren<QLabel*>()) {
            EXPECT_EQ(label->textFormat(), Qt::PlainText);
            all += label->text().toStdString() + "|";
        }
        return all;
    }
};

TEST_F(DesktopNoticesTest, AFailureOffersTheStepThatHelps) {
    center.post("PresentCaptureFailure", {{"command", "obsidian"},
                                          {"detail", "path"},
                                          {"message", "Capture failed: no vault.\nSaved to local recovery log."},
                                          {"saved", true},
                                          {"section", "Capture Targets"},
                                          {"field", "obsidianVaultPath"},
                                          {"actionTitle", "Choose the Folder"}});
    ASSERT_TRUE(pumpUntil([] { return cards().size() == 1; }));
    QWidget* const card = cards().front();
    EXPECT_EQ(textOf(card), "//obsidian|Capture failed: no vault.\nSaved to local recovery log.|");
    ASSERT_TRUE(button(card));
    EXPECT_EQ(button(card)->text(), "Choose the Folder");
    keepPicture(*card, "failure-notice");
    button(card)->click();
    EXPECT_EQ(openedSettings, "Capture Targets/obsidianVaultPath");
    EXPECT_TRUE(pumpUntil([] { return cards().empty(); }));
    // Without a message the detail speaks, and nothing pretends to be a button.
    center.post("PresentCaptureFailure",
                {{"command", "capture"}, {"detail", "The keyboard listener paused."}, {"informational", true}});
    ASSERT_TRUE(pumpUntil([] { return cards().size() == 1; }));
    EXPECT_EQ(textOf(cards().front()), "Snipwren|The keyboard listener paused.|");
    EXPECT_FALSE(button(cards().front()));
}

TEST_F(DesktopNoticesTest, AReceiptComesFromAnyThreadAndRevealsWhatWasWritten) {
    std::thread([&] {
        notices.announce({"note", "buy <i>milk</i>", "Quick Capture.md", "/tmp/Quick Capture.md", {}, true});
    }).join();
    ASSERT_TRUE(pumpUntil([] { return cards().size() == 1; }));
    QWidget* const card = cards().front();
    EXPECT_EQ(textOf(card), "Quick Capture.md|buy <i>milk</i>|");
    keepPicture(*card, "receipt");
    button(card)->click();
    EXPECT_EQ(revealed, std::vector<std::string>{"/tmp/Quick Capture.md"});
    EXPECT_TRUE(pumpUntil([] { return cards().empty(); }));
    std::thread([&] { notices.announceFault("Could not open /tmp/x"); }).join();
    EXPECT_TRUE(pumpUntil([] { return cards().size() == 1 && textOf(cards().front()) == "Could not open /tmp/x|"; }));
}

TEST_F(DesktopNoticesTest, ManyNoticesNeverCoverEachOtherAndProgressStaysOne) {
    for (int i = 0; i < 10; ++i) notices.show({"Downloading", std::to_string(i), "arrow.down.circle", i / 10.0});
    EXPECT_TRUE(pumpUntil([] { return cards().size() == 1; }));
    EXPECT_EQ(textOf(cards().front()), "Downloading|9|");
    for (int i = 0; i < 10; ++i) notices.show({"Timer finished", std::string(200, 'x'), "timer", -1});
    EXPECT_TRUE(pumpUntil([] { return cards().size() == NoticePanel::maxNotices; }));
    const auto all = cards();
    for (std::size_t i = 1; i < all.size(); ++i)
        EXPECT_FALSE(all[i]->frameGeometry().intersects(all[i - 1]->frameGeometry()));
    for (QWidget* card : all) EXPECT_FALSE(card->isActiveWindow());
}

TEST(StatusMenu, ShowsWhatIsThereAndHandsBackWhatIsChosen) {
    std::string chosen;
    StatusMenu::Contents contents;
    contents.countdown = "tea & toast \xC2\xB7 1:05 remaining";
    contents.commands = {"note", "timer"};
    contents.lastCaptures = {{"7", std::string(300, 'x')}};
    contents.scheduled = {{"t1", "tea, 15:04"}};
    contents.recovery = {{"r1", "slack: not sent"}};
    StatusMenu menu({.contents = [&] { return contents; },
                     .capture = [&](const std::string& command) { chosen = "capture " + command; },
                     .setPaused = [&](bool on) { chosen = on ? "pause" : "go on"; },
                     .copyCapture = [&](const std::string& id) { chosen = "copy " + id; },
                     .cancelScheduled = [&](const std::string& id) { chosen = "cancel " + id; },
                     .retry = [&](const std::string& id) { chosen = "retry " + id; },
                     .undo = [&] { chosen = "undo"; },
                     .openRecoveryLog = [&] { chosen = "log"; },
                     .openSettingsFile = [&] { chosen = "settings"; },
                     .checkForUpdates = [&] { chosen = "updates"; },
                     .installUpdate = {},
                     .quit = [&] { chosen = "quit"; }});
    const auto trigger = [&](const QString& path) {
        menu.rebuild();
        QMenu* part = &menu.menu();
        QAction* found = nullptr;
        for (const QString& name : path.split("/")) {
            if (found) part = found->menu();
            found = nullptr;
            for (QAction* action : part->actions())
                if (action->text().startsWith(name)) found = action;
            if (!found) return std::string("no ") + path.toStdString();
        }
        chosen.clear();
        found->trigger();
        pumpUntil([&] { return !chosen.empty(); }, milliseconds(500));
        return chosen;
    };
    menu.rebuild();
    EXPECT_EQ(menu.menu().actions().first()->text(), "tea && toast \xC2\xB7 1:05 remaining");
    EXPECT_FALSE(menu.menu().actions().first()->isEnabled());
    EXPECT_EQ(trigger("Pause"), "pause");
    EXPECT_EQ(trigger("Undo Last Capture"), "undo");
    EXPECT_EQ(trigger("Last Captures/xxx"), "copy 7");
    EXPECT_EQ(trigger("Scheduled/tea"), "cancel t1");
    EXPECT_EQ(trigger("Recovery Log/slack"), "retry r1");
    EXPECT_EQ(trigger("Recovery Log/Open"), "log");
    EXPECT_EQ(trigger("Settings"), "settings");
    EXPECT_EQ(trigger("Check"), "updates");
    EXPECT_EQ(trigger("Quit"), "quit");
    for (QMenu* part : menu.menu().findChildren<QMenu*>())
        for (QAction* row : part->actions()) EXPECT_LE(row->text().size(), StatusMenu::maxTextLength + 8);
    contents.isPaused = true;
    EXPECT_EQ(trigger("Pause"), "go on");
    menu.popup();
    EXPECT_TRUE(pumpUntil([&] { return menu.menu().isVisible(); }));
    keepPicture(menu.menu(), "menu");
    menu.menu().hide();
}

/// A panel that comes after the program has started.
TEST(StatusItem, AppearsWhenAPanelComesLateAndKeepsItsCountdownUpToDate) {
    QMenu contextMenu;
    contextMenu.addAction("Quit");
    StatusItem item(contextMenu);
    item.start();
    EXPECT_FALSE(pumpUntil([&] { return item.isShown(); }, milliseconds(300)));
    QProcess panel;
    panel.setProcessChannelMode(QProcess::MergedChannels);
    panel.start("/usr/bin/python3", {SNIPWREN_HOSTS "/status_watcher.py"});
    QByteArray output;
    const auto heard = [&](const char* text) {
        output += panel.readAll();
        return output.contains(text);
    };
    ASSERT_TRUE(pumpUntil([&] { return heard("REGISTERED"); }, std::chrono::seconds(20))) << output.toStdString();
    EXPECT_TRUE(item.isShown());
    item.setLook({.badge = "1m", .toolTip = "1:05 remaining"});
    EXPECT_TRUE(pumpUntil([&] { return heard("NewIcon") && heard("TOOLTIP 1:05 remaining"); })) << output.toStdString();
    panel.kill();
    panel.waitForFinished();
}

TEST(SingleInstance, ASecondOneFindsTheFirstAndAsksForItsMenu) {
    int menus = 0;
    std::string captured;
    SingleInstance first;
    ASSERT_EQ(first.claim({.showMenu = [&] { ++menus; },
                           .quit = [] {},
                           .capture =
                               [&](const std::string& command) {
                                   captured = command;
                                   return command == "note";
                               },
                           .undo = [](const auto& done) { done(true, "Taken back."); },
                           .status = [] { return std::string("{\"running\":true}"); }}),
              SingleInstance::Claim::claimed);
    QProcess second;
    const auto call = [&](const QStringList& arguments) {
        second.start("gdbus",
                     QStringList{"call", "--session", "-d", SingleInstance::service, "-o", SingleInstance::path, "-m"}
                         + arguments);
        pumpUntil([&] { return second.state() == QProcess::NotRunning; });
        return second.readAllStandardOutput().trimmed().toStdString();
    };
    const QString name = QString(SingleInstance::interface) + ".";
    EXPECT_EQ(call({name + "ShowMenu"}), "()");
    EXPECT_EQ(menus, 1);
    EXPECT_EQ(call({name + "Capture", "note"}), "(true,)");
    EXPECT_EQ(call({name + "Capture", "nonsense"}), "(false,)");
    EXPECT_EQ(captured, "nonsense");
    EXPECT_EQ(call({name + "Status"}), "('{\"running\":true}',)");
    EXPECT_EQ(call({name + "Undo"}), "(true, 'Taken back.')");
    EXPECT_EQ(call({name + "Explode"}), "");
}
} // namespace
} // namespace snipwren
