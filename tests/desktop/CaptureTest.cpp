// Whole captures: the desktop program as a process of its own, editors, and keys as a keyboard sends them.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/Log.h"
#include "desktop/FieldHost.h"
#include "desktop/support/HostWindow.h"
#include "desktop/support/NoWorkspace.h"
#include "desktop/support/Typist.h"
#include "hosts/linux/accessibility/AtSpiFocusedField.h"
#include "hosts/linux/x11/X11ActiveWindow.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using std::chrono::milliseconds;
using Toolkit = FieldHost::Toolkit;
/// A fast typist; the tap's own tests go faster.
constexpr std::chrono::microseconds keyGap{6000};

bool eventually(const std::function<bool()>& done, milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
        if (done()) return true;
        std::this_thread::sleep_for(milliseconds(5));
    }
    return done();
}

std::string outputOf(const std::string& command) {
    std::string all;
    FILE* const pipe = popen(command.c_str(), "r");
    char bytes[4096];
    while (const std::size_t count = fread(bytes, 1, sizeof bytes, pipe)) all.append(bytes, count);
    pclose(pipe);
    return all;
}

std::string contentsOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class CaptureTest : public testing::Test {
protected:
    void SetUp() override {
        start();
        ASSERT_TRUE(eventually([&] { return status().find("\"listening\":true") != std::string::npos; },
                               std::chrono::seconds(8)));
        ASSERT_TRUE(eventually([&] { return status().find("\"accessibility\":true") != std::string::npos; }));
    }
    void TearDown() override {
        if (program_ > 0) {
            kill(program_, SIGCONT);
            kill(program_, SIGTERM);
            int ended = 0;
            EXPECT_TRUE(eventually([&] { return waitpid(program_, &ended, WNOHANG) == program_; }));
            EXPECT_EQ(ended, 0);
        }
        if (HasFailure())
            std::puts(
                (contentsOf(home_.file("log.txt")) + contentsOf(home_.file("state/com.snipwren.app/snipwren.log")))
                    .c_str());
    }
    void start() {
        program_ = fork();
        if (program_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("SNIPWREN_HOME", home_.path().c_str(), 1);
        const int log = open(home_.file("log.txt").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(log, 2);
        execl(SNIPWREN_DESKTOP_PROGRAM, SNIPWREN_DESKTOP_PROGRAM, nullptr);
        _exit(127);
    }
    static std::string status() { return ask("Status"); }
    static std::string ask(const std::string& request) {
        return outputOf(
            "gdbus call --session -d org.snipwren.Desktop -o /org/snipwren/Desktop -m org.snipwren.Desktop1." + request
            + " 2>/dev/null");
    }
    /// Whether a window of that name is on the screen.
    static bool isShown(const std::string& name) {
        return outputOf("xwininfo -name '" + name + "' 2>/dev/null").find("IsViewable") != std::string::npos;
    }
    static bool overlayIsShown() { return isShown("Snipwren capture"); }
    /// The captures in the note file, without the times.
    std::vector<std::string> notes() const {
        std::vector<std::string> found;
        std::istringstream lines(contentsOf(home_.file("Documents/Snipwren/Quick Capture.md")));
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("- [")) found.push_back(line.substr(10));
        return found;
    }
    /// In a field that is empty and has the keyboard, and that accessibility knows of.
    void prepare(FieldHost& host, const std::string& field = "entry") {
        ASSERT_TRUE(host.isReady());
        host.set(field, "");
        host.focus(field);
        typist_.type("x", keyGap);
        ASSERT_TRUE(eventually([&] { return host.get(field) == "x"; }));
        typist_.type("\b", keyGap);
        ASSERT_TRUE(eventually([&] { return host.get(field).empty(); }));
        std::this_thread::sleep_for(milliseconds(300));
    }
    static void keepScreen(const char* name) {
        if (const char* folder = std::getenv("SNIPWREN_SCREENSHOTS"))
            outputOf(std::string("/usr/bin/python3 " SNIPWREN_HOSTS "/keep_screen.py '") + folder + "/" + name
                     + ".png'");
    }

    TemporaryFolder home_;
    pid_t program_ = -1;
    Typist typist_;
};

class CaptureInEveryToolkit : public CaptureTest, public testing::WithParamInterface<Toolkit> {};

TEST_P(CaptureInEveryToolkit, TheTriggerLeavesNoTraceAndTheTextArrivesInTheNote) {
    FieldHost host(GetParam());
    for (const char* field : {"entry", "multi"}) {
        SCOPED_TRACE(field);
        prepare(host, field);
        const std::size_t before = notes().size();
        typist_.type("Hello, //note ", keyGap);
        ASSERT_TRUE(eventually(overlayIsShown));
        EXPECT_TRUE(eventually([&] { return host.get(field) == "Hello, "; })) << host.get(field);
        typist_.type("buy milk\n", keyGap);
        ASSERT_TRUE(eventually([&] { return notes().size() == before + 1; }));
        EXPECT_EQ(notes().back(), "buy milk");
        // The editor has the keyboard again.
        typist_.type("after", keyGap);
        EXPECT_TRUE(eventually([&] { return host.get(field) == "Hello, after"; })) << host.get(field);
        EXPECT_FALSE(overlayIsShown());
    }
}

TEST_P(CaptureInEveryToolkit, KeysTypedWhileTheOverlayOpensReachItInOrderAndNoneTheHost) {
    FieldHost host(GetParam());
    prepare(host);
    for (int round = 1; round <= 10; ++round) {
        SCOPED_TRACE(round);
        typist_.type("//note ", keyGap);
        // All in one go, long before any window can be there.
        typist_.type("The quick brown fox, jumps over it\n");
        ASSERT_TRUE(eventually([&] { return notes().size() == static_cast<std::size_t>(round); }));
        EXPECT_EQ(notes().back(), "The quick brown fox, jumps over it");
        ASSERT_TRUE(eventually([&] { return !overlayIsShown(); }));
        EXPECT_TRUE(eventually([&] { return host.get("entry").empty(); })) << host.get("entry");
    }
}

INSTANTIATE_TEST_SUITE_P(Hosts, CaptureInEveryToolkit, testing::Values(Toolkit::gtk3, Toolkit::gtk4, Toolkit::qt),
                         [](const auto& host) {
                             std::string name = FieldHost::name(host.param);
                             std::erase(name, ' ');
                             return name;
                         });

TEST_F(CaptureTest, ManyTriggersInARowGiveAsManyCaptures) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    constexpr int rounds = 20;
    std::string expected;
    for (int round = 1; round <= rounds; ++round) {
        const std::string number = std::to_string(round);
        typist_.type("w" + number + " //note message " + number + "\n", keyGap);
        ASSERT_TRUE(eventually([&] { return notes().size() == static_cast<std::size_t>(round); })) << notes().size();
        EXPECT_EQ(notes().back(), "message " + number);
        expected += "w" + number + " ";
        ASSERT_TRUE(eventually([&] { return host.get("entry") == expected; })) << host.get("entry");
    }
}

/// Every slash is held back, so that a trigger is found however fast it comes.
class CaptureAtFullSpeed : public CaptureTest, public testing::WithParamInterface<int> {
protected:
    CaptureAtFullSpeed() {
        const std::string folder = home_.file("config/com.snipwren.app");
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/defaults.json") << R"({"grabEverySlash": true})";
    }
};

TEST_P(CaptureAtFullSpeed, NoKeyIsLostDoubledOrOutOfOrder) {
    constexpr int captures = 40;
    // Other keys than those that we post ourselves while it types: those of the keyboard.
    Typist person(Typist::Device::keyboard);
    for (const Toolkit toolkit : {Toolkit::gtk3, Toolkit::qt}) {
        SCOPED_TRACE(FieldHost::name(toolkit));
        FieldHost host(toolkit);
        prepare(host);
        const std::size_t before = notes().size();
        std::string typed, expected;
        std::vector<std::string> messages;
        for (int i = 0; i < captures; ++i) {
            const std::string number = std::to_string(i);
            typed += "w" + number + " //note m" + number + "\n";
            expected += "w" + number + " ";
            messages.push_back("m" + number);
        }
        person.type(typed, std::chrono::microseconds(GetParam()));
        EXPECT_TRUE(eventually([&] { return notes().size() == before + captures; }, std::chrono::seconds(30)));
        EXPECT_TRUE(eventually([&] { return host.get("entry") == expected; })) << host.get("entry");
        std::vector<std::string> found = notes();
        found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(std::min(before, found.size())));
        // Sends run side by side.
        std::sort(found.begin(), found.end());
        std::sort(messages.begin(), messages.end());
        EXPECT_EQ(found, messages);
    }
}

INSTANTIATE_TEST_SUITE_P(MicrosecondsAKey, CaptureAtFullSpeed, testing::Values(0, 500, 2000));

TEST_F(CaptureTest, EscapeGivesEverythingBackAndKeepsTheTextForNextTime) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    typist_.type("a //note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("half a thought\x1b", keyGap);
    ASSERT_TRUE(eventually([] { return !overlayIsShown(); }));
    typist_.type("b", keyGap);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "a b"; })) << host.get("entry");
    typist_.type(" //note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("\t goes on\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_EQ(notes().back(), "half a thought goes on");
}

TEST_F(CaptureTest, NothingHappensInAPasswordField) {
    FieldHost host(Toolkit::qt);
    prepare(host);
    host.focus("password");
    std::this_thread::sleep_for(milliseconds(300));
    typist_.type("//note secret", keyGap);
    EXPECT_FALSE(eventually(overlayIsShown, milliseconds(600)));
    EXPECT_EQ(host.get("password"), "//note secret");
}

TEST_F(CaptureTest, KilledInTheMiddleOfACaptureTypingGoesOnAndTheTextIsKept) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    typist_.type("//note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("not lost", keyGap);
    const auto filesWith = [&](const std::string& text) {
        return outputOf("grep -rl '" + text + "' '" + home_.path() + "'");
    };
    ASSERT_TRUE(eventually([&] { return !filesWith("not lost").empty(); }));
    kill(program_, SIGKILL);
    waitpid(program_, nullptr, 0);
    program_ = -1;
    std::this_thread::sleep_for(milliseconds(300));
    typist_.type("still typing //note on", keyGap);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "still typing //note on"; })) << host.get("entry");
    start();
    EXPECT_TRUE(eventually([&] {
        const std::string files = filesWith("not lost");
        return files.find("fallback_captures.log") != std::string::npos
               && std::count(files.begin(), files.end(), '\n') == 1;
    })) << filesWith("not lost");
}

TEST_F(CaptureTest, StoppedInTheMiddleOfACaptureTypingGoesOnAndTheTextIsKept) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    typist_.type("//note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("half a thought", keyGap);
    ASSERT_TRUE(eventually([&] { return host.get("entry").empty(); })) << host.get("entry");
    std::this_thread::sleep_for(milliseconds(100));
    kill(program_, SIGSTOP);
    // The overlay has the keyboard and cannot give it back. These first keys are still its own.
    typist_.type(" and", keyGap);
    EXPECT_TRUE(eventually([] { return !overlayIsShown(); }));
    typist_.type("typing goes on", keyGap);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "typing goes on"; })) << host.get("entry");
    kill(program_, SIGCONT);
    std::this_thread::sleep_for(milliseconds(800));
    typist_.type("//note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("\t!\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_TRUE(notes().back().starts_with("half a thought")) << notes().back();
    EXPECT_TRUE(eventually([&] { return host.get("entry").starts_with("typing goes on"); })) << host.get("entry");
}

TEST_F(CaptureTest, PausedItTakesNothingUntilItGoesOn) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    const auto choosePause = [&] {
        EXPECT_EQ(WEXITSTATUS(std::system(SNIPWREN_DESKTOP_PROGRAM)), 0);
        std::this_thread::sleep_for(milliseconds(300));
        constexpr std::uint8_t down = 116;
        typist_.tap(down);
        typist_.tap(down);
        typist_.type("\n");
    };
    choosePause();
    ASSERT_TRUE(eventually([] { return status().find("\"paused\":true") != std::string::npos; }));
    typist_.type("//note x ", keyGap);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "//note x "; })) << host.get("entry");
    EXPECT_FALSE(overlayIsShown());
    choosePause();
    ASSERT_TRUE(eventually([] { return status().find("\"listening\":true") != std::string::npos; }));
    std::this_thread::sleep_for(milliseconds(300));
    typist_.type("//note y\n", keyGap);
    EXPECT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "//note x "; })) << host.get("entry");
}

/// On a session bus that can end.
class CaptureOnABusOfItsOwn : public CaptureTest {
protected:
    void SetUp() override {
        before_ = std::getenv("DBUS_SESSION_BUS_ADDRESS");
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + home_.file("bus")).c_str(), 1);
        startBus();
        CaptureTest::SetUp();
    }
    void TearDown() override {
        CaptureTest::TearDown();
        endBus();
        setenv("DBUS_SESSION_BUS_ADDRESS", before_.c_str(), 1);
    }
    void startBus() {
        bus_ = fork();
        if (bus_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const std::string config = std::string("--config-file=") + std::getenv("SESSION_BUS_CONFIG");
            const std::string address = "--address=unix:path=" + home_.file("bus");
            const int log = open(home_.file("bus.txt").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            dup2(log, 2);
            execlp("dbus-daemon", "dbus-daemon", config.c_str(), address.c_str(), "--nofork", "--nopidfile", nullptr);
            _exit(127);
        }
        ASSERT_TRUE(eventually([] {
            return outputOf("gdbus call --session -d org.a11y.Bus -o /org/a11y/bus -m org.a11y.Bus.GetAddress 2>&1")
                       .find("unix:")
                   != std::string::npos;
        }));
    }
    void endBus() {
        kill(bus_, SIGKILL);
        waitpid(bus_, nullptr, 0);
        std::filesystem::remove(home_.file("bus"));
    }

    std::string before_;
    pid_t bus_ = -1;
};

TEST_F(CaptureOnABusOfItsOwn, OutlivesTheSessionBusAndComesBackWithIt) {
    HostWindow host("editor");
    ASSERT_TRUE(host.focus());
    endBus();
    typist_.type("a //note without a bus\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_TRUE(host.waitForText("a ")) << host.text();
    startBus();
    ASSERT_TRUE(eventually([] {
        const std::string now = status();
        return now.find("\"listening\":true") != std::string::npos
               && now.find("\"accessibility\":true") != std::string::npos;
    }));
    typist_.type("b //note with one again\n", keyGap);
    EXPECT_TRUE(eventually([&] { return notes().size() == 2; }));
    EXPECT_TRUE(host.waitForText("a b ")) << host.text();
}

TEST_F(CaptureTest, EndedInTheMiddleOfACaptureTheTextIsInTheRecoveryLog) {
    FieldHost host(Toolkit::qt);
    prepare(host);
    typist_.type("//note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("not yet sent", keyGap);
    std::this_thread::sleep_for(milliseconds(300));
    kill(program_, SIGTERM);
    EXPECT_TRUE(eventually([&] { return waitpid(program_, nullptr, WNOHANG) == program_; }));
    program_ = -1;
    const std::string files = outputOf("grep -rl 'not yet sent' '" + home_.path() + "'");
    EXPECT_NE(files.find("fallback_captures.log"), std::string::npos);
    EXPECT_EQ(std::count(files.begin(), files.end(), '\n'), 1) << "and nowhere else: " << files;
    typist_.type("on", keyGap);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "on"; })) << host.get("entry");
}

TEST_F(CaptureTest, AStoppedHostGetsTheTriggerRemovedOnceWhenItGoesOn) {
    FieldHost host(Toolkit::gtk3);
    prepare(host);
    typist_.type("Hello //note", keyGap);
    ASSERT_TRUE(eventually([&] { return host.get("entry") == "Hello //note"; }));
    host.signal(SIGSTOP);
    typist_.type(" ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("while it sleeps\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_EQ(notes().back(), "while it sleeps");
    host.signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return host.get("entry") == "Hello "; })) << host.get("entry");
}

TEST_F(CaptureTest, ASecondLaunchShowsTheMenuAndEnds) {
    EXPECT_EQ(WEXITSTATUS(std::system(SNIPWREN_DESKTOP_PROGRAM)), 0);
    EXPECT_TRUE(
        eventually([] { return outputOf("xwininfo -root -tree").find("snipwren-desktop") != std::string::npos; }));
    keepScreen("menu-on-screen");
    typist_.type("\x1b");
    EXPECT_EQ(ask("Capture nonsense"), "(false,)\n");
    EXPECT_EQ(ask("Capture note"), "(true,)\n");
    EXPECT_TRUE(eventually(overlayIsShown));
    typist_.type("from the command line\n", keyGap);
    EXPECT_TRUE(eventually([&] { return notes().size() == 1; }));
}

struct Editor {
    const char* name;
    std::vector<const char*> command;
    const char* titlePart;
};

/// A program that is not ours, ended with this object.
class ForeignProgram {
public:
    explicit ForeignProgram(std::vector<const char*> command) {
        command.push_back(nullptr);
        process_ = fork();
        if (process_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execvp(command[0], const_cast<char* const*>(command.data()));
        _exit(127);
    }
    ~ForeignProgram() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    ForeignProgram(const ForeignProgram&) = delete;
    ForeignProgram& operator=(const ForeignProgram&) = delete;

private:
    pid_t process_ = -1;
};

/// A window manager may leave a new window behind the one that was typed in a moment ago; a person then clicks on it.
void click(Typist& typist, const std::string& titlePart) {
    std::istringstream tree(outputOf("xwininfo -root -tree"));
    for (std::string line; std::getline(tree, line);) {
        if (line.find(titlePart) == std::string::npos) continue;
        // Title, class in brackets, size and place in the parent, place on the screen: "700x500+1+20  +290+150".
        int width = 0, height = 0, x = 0, y = 0;
        const std::size_t classes = line.find(')');
        if (classes == std::string::npos
            || std::sscanf(line.c_str() + classes + 1, " %dx%d%*d%*d %d%d", &width, &height, &x, &y) != 4
            || width < 200)
            continue;
        xcb_test_fake_input(typist.connection(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME,
                            rootWindow(typist.connection()), static_cast<std::int16_t>(x + 60),
                            static_cast<std::int16_t>(y + 120), 0);
        for (const std::uint8_t type : {std::uint8_t{XCB_BUTTON_PRESS}, std::uint8_t{XCB_BUTTON_RELEASE}})
            xcb_test_fake_input(typist.connection(), type, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        typist.sync();
        return;
    }
}

void waitForWindow(Typist& typist, const std::string& titlePart) {
    X11ActiveWindow windows;
    const auto isActive = [&] {
        const auto window = windows.activeWindow();
        return window && window->title.find(titlePart) != std::string::npos;
    };
    for (int attempt = 0; attempt < 10 && !eventually(isActive, std::chrono::seconds(3)); ++attempt)
        click(typist, titlePart);
    ASSERT_TRUE(isActive()) << outputOf("xprop -root _NET_ACTIVE_WINDOW _NET_CLIENT_LIST; xwininfo -root -tree");
    std::this_thread::sleep_for(milliseconds(1000));
}

class CaptureInAnEditor : public CaptureTest, public testing::WithParamInterface<Editor> {};

/// Real editors, and the pictures of the manual.
TEST_P(CaptureInAnEditor, ReadsWhatWasTypedAroundTheCapture) {
    const ForeignProgram editor(GetParam().command);
    waitForWindow(typist_, GetParam().titlePart);
    typist_.type("Hello, //note ", keyGap);
    ASSERT_TRUE(eventually(overlayIsShown));
    typist_.type("buy milk", keyGap);
    std::this_thread::sleep_for(milliseconds(300));
    keepScreen((std::string("capture-in-") + GetParam().name).c_str());
    typist_.type("\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_EQ(notes().back(), "buy milk");
    std::this_thread::sleep_for(milliseconds(300));
    keepScreen((std::string("captured-in-") + GetParam().name).c_str());
    typist_.type("and goes on", keyGap);
    X11ActiveWindow windows;
    NoWorkspace workspace;
    MemoryLog log;
    AtSpiFocusedField fields(windows, workspace, log);
    fields.start();
    std::optional<std::string> text;
    EXPECT_TRUE(eventually([&] {
        const auto field = fields.focusedElement();
        if (field) text = field->value();
        return text == "Hello, and goes on";
    })) << text.value_or("unknown");
    fields.stop();
}

INSTANTIATE_TEST_SUITE_P(Editors, CaptureInAnEditor,
                         testing::Values(Editor{"mousepad", {"mousepad", "--disable-server"}, "Mousepad"},
                                         Editor{"featherpad", {"featherpad", "--standalone"}, "Untitled"}),
                         [](const auto& editor) { return editor.param.name; });

/// No accessibility and no text to read back: Backspaces, which the terminal itself carries out.
TEST_F(CaptureTest, InATerminal) {
    const std::string typed = home_.file("typed");
    const std::string command = "stty erase '^?'; cat > '" + typed + "'";
    const ForeignProgram terminal({"xterm", "-xrm", "*backarrowKey: false", "-e", "sh", "-c", command.c_str()});
    waitForWindow(typist_, "sh");
    typist_.type("Hello, //note buy milk\n", keyGap);
    ASSERT_TRUE(eventually([&] { return notes().size() == 1; }));
    EXPECT_EQ(notes().back(), "buy milk");
    typist_.type("and goes on\n", keyGap);
    EXPECT_TRUE(eventually([&] { return contentsOf(typed) == "Hello, and goes on\n"; })) << contentsOf(typed);
}
} // namespace
} // namespace snipwren
