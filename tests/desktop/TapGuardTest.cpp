#include <gtest/gtest.h>

#include "desktop/support/ChildProgram.h"
#include "desktop/support/HostWindow.h"
#include "desktop/support/Typist.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;

TEST(TapGuard, TypingGoesOnWhenTheProgramIsStoppedAndTheTapComesBackWithIt) {
    HostWindow host;
    ASSERT_TRUE(host.focus());
    host.settle();
    Typist typist;
    ChildProgram program({SNIPWREN_TAP_HOST, SNIPWREN_TAPGUARD});
    ASSERT_EQ(program.line(), "ready");
    typist.type("//note ", 20ms);
    ASSERT_TRUE(host.waitForText("//note", 1000ms)) << host.text();

    // In the middle of a trigger: the next slash and the Space are held back by a program that cannot answer.
    typist.type("x/", 20ms);
    host.settle(50ms);
    program.signal(SIGSTOP);
    host.clear();
    typist.type("/copy this text", 20ms);
    EXPECT_TRUE(host.waitForText("/copy this text", 3000ms)) << "even what waited for an answer: " << host.text();

    program.signal(SIGCONT);
    host.settle(500ms);
    host.clear();
    typist.type("//timer ", 20ms);
    EXPECT_TRUE(host.waitForText("//timer", 1000ms)) << host.text();
    // Whether the trigger typed meanwhile still counts, as a late one, depends on when exactly the program stopped.
    const std::string told = program.end();
    EXPECT_EQ(told.substr(0, 11), "2 swallowed") << told;
}

TEST(TapGuard, AKilledProgramLeavesTheKeyboardFree) {
    HostWindow host;
    ASSERT_TRUE(host.focus());
    host.settle();
    Typist typist;
    ChildProgram program({SNIPWREN_TAP_HOST, SNIPWREN_TAPGUARD});
    ASSERT_EQ(program.line(), "ready");
    typist.type("x//no", 20ms);
    program.signal(SIGKILL);
    typist.type("te and more", 20ms);
    EXPECT_TRUE(host.waitForText("x//note and more", 1000ms)) << host.text();
}
} // namespace
} // namespace snipwren
