#include <csignal>
#include <mutex>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/Log.h"
#include "desktop/FieldHost.h"
#include "desktop/support/NoWorkspace.h"
#include "hosts/linux/accessibility/AtSpiFocusedField.h"
#include "hosts/linux/x11/X11ActiveWindow.h"

namespace snipwren {
namespace {
using Toolkit = FieldHost::Toolkit;
using Steady = std::chrono::steady_clock;
constexpr const char* smiling = "h\xC3\xA9llo \xF0\x9F\x98\x80 w\xC3\xB6rld //note";
constexpr const char* strippedSmiling = "h\xC3\xA9llo \xF0\x9F\x98\x80 w\xC3\xB6rld ";

class FieldFixture : public testing::Test {
protected:
    void SetUp() override {
        fields.setSecureChanged([this](bool on) { secure = on; });
        fields.start();
    }
    void TearDown() override { fields.stop(); }

    template <class Done>
    static bool eventually(Done done) {
        const auto end = Steady::now() + std::chrono::seconds(10);
        while (Steady::now() < end) {
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return done();
    }

    /// The element of the field, once the host has focused it.
    std::shared_ptr<FieldElement> element(FieldHost& host, const std::string& field, const std::string& text) {
        host.set(field, text);
        host.focus(field);
        std::shared_ptr<FieldElement> found;
        const bool right = eventually([&] {
            found = fields.focusedElement();
            return found && found->value() == text;
        });
        EXPECT_TRUE(right) << field;
        return right ? found : nullptr;
    }

    static double millisecondsOf(const std::function<void()>& work) {
        const auto start = Steady::now();
        work();
        return std::chrono::duration<double, std::milli>(Steady::now() - start).count();
    }

    X11ActiveWindow windows;
    NoWorkspace workspace;
    MemoryLog log;
    std::atomic<bool> secure = false;
    AtSpiFocusedField fields{windows, workspace, log};
};

class FocusedFieldTest : public FieldFixture, public testing::WithParamInterface<Toolkit> {};

TEST_P(FocusedFieldTest, ReadsAndEditsAroundCharactersOutsideTheBasicPlane) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    for (const char* name : {"entry", "multi"}) {
        SCOPED_TRACE(name);
        const auto field = element(host, name, smiling);
        ASSERT_TRUE(field);
        const auto caret = field->selectedRange();
        ASSERT_TRUE(caret);
        EXPECT_EQ(*caret, (Utf16Range{21, 0}));
        EXPECT_EQ(field->replaceRange({15, 6}, ""), EditOutcome::applied);
        EXPECT_TRUE(eventually([&] { return field->value() == strippedSmiling; }));
        EXPECT_EQ(host.get(name), strippedSmiling);
        EXPECT_EQ(field->setValue("\xF0\x9F\x98\x80 new"), EditOutcome::applied);
        EXPECT_TRUE(eventually([&] { return host.get(name) == "\xF0\x9F\x98\x80 new"; }));
        EXPECT_EQ(field->replaceRange({3, 3}, "\xC3\xA9\xF0\x9F\x98\x80"), EditOutcome::applied);
        EXPECT_TRUE(eventually([&] { return host.get(name) == "\xF0\x9F\x98\x80 \xC3\xA9\xF0\x9F\x98\x80"; }))
            << host.get(name);
        EXPECT_EQ(field->replaceRange({5, 40}, ""), EditOutcome::refused) << "beyond the end";
    }
}

TEST_P(FocusedFieldTest, TellsTheSelectionInUtf16) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    const auto field = element(host, "entry", smiling);
    ASSERT_TRUE(field);
    // The host counts in its own unit: the words after the emoji begin at 8 code points or 9 units.
    const int start = GetParam() == Toolkit::qt ? 9 : 8;
    host.select("entry", start, start + 5);
    EXPECT_TRUE(eventually([&] { return field->selectedText() == "w\xC3\xB6rld"; }))
        << field->selectedText().value_or("");
    EXPECT_TRUE(eventually([&] { return field->selectedRange() == Utf16Range{9, 5}; }));
}

TEST_P(FocusedFieldTest, DescribesFieldsAndTellsWhenTheFocusMoves) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    std::mutex mutex;
    std::vector<FieldDescription> seen;
    fields.setFocusObserver([&](const std::string& bundleId, const FieldDescription& field) {
        EXPECT_TRUE(field.role.empty() || !bundleId.empty());
        const std::lock_guard lock(mutex);
        seen.push_back(field);
    });
    const auto entry = element(host, "entry", "one");
    const auto multi = element(host, "multi", "two");
    ASSERT_TRUE(entry && multi);
    fields.setFocusObserver({});
    const auto description = entry->describe();
    ASSERT_TRUE(description);
    EXPECT_EQ(description->role, "text");
    EXPECT_FALSE(description->isSecure);
    EXPECT_TRUE(description->isEditable);
    EXPECT_GE(description->width, 100);
    EXPECT_EQ(description->windowTitle, GetParam() == Toolkit::qt ? "Qt fields" : "GTK fields");
    if (GetParam() != Toolkit::gtk4) {
        EXPECT_EQ(description->label, "Search box");
    }
    EXPECT_EQ(description->placeholder, "Find things");
    EXPECT_NE(description->identifier, multi->describe()->identifier);
    const std::lock_guard lock(mutex);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back().identifier, multi->describe()->identifier);
}

TEST_P(FocusedFieldTest, KeepsOutOfPasswords) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    host.set("password", "secret //note");
    host.focus("password");
    ASSERT_TRUE(eventually([&] { return secure.load(); }));
    const auto field = fields.focusedElement();
    ASSERT_TRUE(field);
    EXPECT_TRUE(field->describe()->isSecure);
    EXPECT_EQ(field->value(), std::nullopt);
    EXPECT_EQ(field->replaceRange({0, 3}, ""), EditOutcome::refused);
    EXPECT_EQ(field->setValue("x"), EditOutcome::refused);
    EXPECT_EQ(host.get("password"), "secret //note");
    host.focus("entry");
    EXPECT_TRUE(eventually([&] { return !secure.load(); }));
}

TEST_P(FocusedFieldTest, LeavesReadOnlyFieldsAlone) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    const auto field = element(host, "readonly", "fixed //note");
    ASSERT_TRUE(field);
    EXPECT_FALSE(field->describe()->isEditable);
    EXPECT_EQ(field->replaceRange({6, 6}, ""), EditOutcome::refused);
    EXPECT_EQ(field->setValue(""), EditOutcome::refused);
    EXPECT_EQ(host.get("readonly"), "fixed //note");
}

TEST_P(FocusedFieldTest, PlacesTheCaretWhereItIsDrawn) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    const auto field = element(host, "multi", "first line\nsecond");
    ASSERT_TRUE(field);
    const auto window = windows.activeWindow();
    ASSERT_TRUE(window);
    const auto real = host.caret();
    ASSERT_EQ(real.size(), 3u);
    std::optional<Rect> caret;
    ASSERT_TRUE(eventually([&] { return (caret = field->boundsOf(*field->selectedRange())).has_value(); }));
    // The toolkits draw so many pixels for each unit of theirs.
    const char* const scaled = std::getenv("GDK_SCALE");
    const double scale = scaled ? std::atof(scaled) : 1;
    EXPECT_NEAR(caret->x, window->frame.x + real[0] * scale, 3 * scale);
    EXPECT_NEAR(caret->y, window->frame.y + real[1] * scale, 4 * scale);
    EXPECT_NEAR(caret->height, real[2] * scale, 4 * scale);
    // In the middle of a line, and on the empty line at the end, where some programs have no answer but never a wrong one.
    std::optional<Rect> above;
    ASSERT_TRUE(eventually([&] { return (above = field->boundsOf({3, 0})).has_value(); }));
    EXPECT_NEAR(above->y, caret->y - caret->height, 6 * scale);
    host.set("multi", "one\n");
    ASSERT_TRUE(eventually([&] { return field->value() == "one\n"; }));
    if (const auto last = field->boundsOf({4, 0})) {
        EXPECT_NEAR(last->y, caret->y, 4 * scale);
        EXPECT_NEAR(last->x, window->frame.x + host.caret()[0] * scale, 3 * scale);
    }
    if (GetParam() == Toolkit::qt) {
        const auto plain = element(host, "plain", "first line\nsecond");
        ASSERT_TRUE(plain);
        EXPECT_EQ(plain->boundsOf({17, 0}), std::nullopt) << "this widget claims that every line is the first";
        EXPECT_TRUE(plain->boundsOf({5, 0}).has_value());
        host.focus("multi");
    }
    const auto frame = field->frame();
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->intersects(*caret));
}

TEST_P(FocusedFieldTest, AStoppedProgramCostsOneTimeOutAndAnsweringReadsProveThatTheEditIsDone) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    const auto field = element(host, "entry", "Hello //note");
    ASSERT_TRUE(field);
    host.signal(SIGSTOP);
    std::optional<std::string> value;
    EXPECT_LT(millisecondsOf([&] { value = field->value(); }), 60);
    EXPECT_EQ(value, std::nullopt);
    // Those that cannot help are not even tried; together they cost next to nothing.
    EXPECT_LT(millisecondsOf([&] {
                  field->boundsOf({0, 0});
                  field->frame();
                  field->selectedText();
              }),
              15);
    EXPECT_LT(millisecondsOf([&] { EXPECT_FALSE(field->selectedRange()); }), 60);
    host.signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return field->value() == "Hello //note"; }));
    EXPECT_TRUE(eventually([&] { return field->replaceRange({6, 6}, "") == EditOutcome::applied; }));
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "Hello "; })) << host.get("entry");
}

TEST_P(FocusedFieldTest, ForgetsTheFieldWhenAWindowWithoutAccessibilityTakesTheKeyboard) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    ASSERT_TRUE(element(host, "entry", "Hello //note"));
    const pid_t terminal = fork();
    if (terminal == 0) {
        execlp("xterm", "xterm", "-e", "cat", nullptr);
        _exit(127);
    }
    EXPECT_TRUE(eventually([&] {
        const auto window = windows.activeWindow();
        return window
               && std::find(window->processIds.begin(), window->processIds.end(), terminal) != window->processIds.end();
    }));
    EXPECT_EQ(fields.focusedElement(), nullptr);
    kill(terminal, SIGTERM);
    waitpid(terminal, nullptr, 0);
    // And finds it again.
    EXPECT_TRUE(eventually([&] {
        const auto field = fields.focusedElement();
        return field && field->value() == "Hello //note";
    }));
}

TEST_P(FocusedFieldTest, FindsTheFieldThatHadTheKeyboardBeforeTheStart) {
    FieldHost host(GetParam());
    ASSERT_TRUE(host.isReady());
    ASSERT_TRUE(element(host, "entry", "earlier"));
    AtSpiFocusedField late(windows, workspace, log);
    late.start();
    EXPECT_TRUE(eventually([&] {
        const auto field = late.focusedElement();
        return field && field->value() == "earlier";
    }));
    const auto field = late.focusedElement();
    late.stop();
    EXPECT_EQ(late.focusedElement(), nullptr);
    EXPECT_EQ(field ? field->value() : std::nullopt, std::nullopt) << "an element outlives the thread that asks";
}

/// Hosts that misbehave on purpose.
class LyingFieldTest : public FieldFixture {
protected:
    std::shared_ptr<FieldElement> focused() {
        std::shared_ptr<FieldElement> found;
        EXPECT_TRUE(eventually([&] {
            found = fields.focusedElement();
            return found && found->value() == "Hello //note";
        }));
        return found;
    }
};

TEST_F(LyingFieldTest, AClaimedEditIsSeenThroughByReadingBack) {
    FieldHost host(Toolkit::lying);
    ASSERT_TRUE(host.isReady());
    const auto field = focused();
    ASSERT_TRUE(field);
    EXPECT_EQ(field->replaceRange({6, 6}, ""), EditOutcome::applied) << "what the program claims";
    EXPECT_EQ(field->value(), "Hello //note");
}

TEST_F(LyingFieldTest, AnEditWithoutAnAnswerIsUnknownAndTheNextReadTellsTheTruth) {
    FieldHost host(Toolkit::late);
    ASSERT_TRUE(host.isReady());
    const auto field = focused();
    ASSERT_TRUE(field);
    EditOutcome outcome = EditOutcome::applied;
    EXPECT_LT(millisecondsOf([&] { outcome = field->replaceRange({6, 6}, ""); }), 55);
    EXPECT_EQ(outcome, EditOutcome::unknown);
    EXPECT_EQ(field->value(), "Hello ");
    EXPECT_EQ(field->selectedRange(), (Utf16Range{6, 0}));
}

TEST_F(LyingFieldTest, NumbersThatCannotBeAreNotBelieved) {
    FieldHost host(Toolkit::broken);
    ASSERT_TRUE(host.isReady());
    const auto field = focused();
    ASSERT_TRUE(field);
    const auto range = field->selectedRange();
    ASSERT_TRUE(range);
    EXPECT_LE(range->start + range->length, 12u);
    EXPECT_EQ(field->boundsOf({12, 0}), std::nullopt);
    EXPECT_EQ(field->frame(), std::nullopt);
    EXPECT_GE(field->describe()->height, 0);
}

INSTANTIATE_TEST_SUITE_P(Hosts, FocusedFieldTest, testing::Values(Toolkit::gtk3, Toolkit::gtk4, Toolkit::qt),
                         [](const auto& host) {
                             std::string name = FieldHost::name(host.param);
                             std::erase(name, ' ');
                             return name;
                         });
} // namespace
} // namespace snipwren
