#include "app/DesktopClient.h"

#include <cstdlib>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include "app/DesktopDoctor.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
/// Stands in for the desktop program on the session bus.
class StandIn {
public:
    StandIn() : connection_(sdbus::createSessionBusConnection(DesktopClient::service)) {
        object_ = sdbus::createObject(*connection_, "/org/snipwren/Desktop");
        const char* const interface = "org.snipwren.Desktop1";
        object_->registerMethod("Status").onInterface(interface).implementedAs(
            [] { return std::string(R"({"pid":7,"listening":true})"); });
        object_->registerMethod("Capture").onInterface(interface).implementedAs(
            [](const std::string& word) { return word == "note"; });
        object_->registerMethod("Quit").onInterface(interface).implementedAs(
            [this] { connection_->releaseName(DesktopClient::service); });
        object_->finishRegistration();
        connection_->enterEventLoopAsync();
    }

private:
    std::unique_ptr<sdbus::IConnection> connection_;
    std::unique_ptr<sdbus::IObject> object_;
};

TEST(DesktopClient, TalksToTheProgramThatRunsAndKnowsWhenNoneDoes) {
    const auto none = DesktopClient::status();
    ASSERT_TRUE(none) << none.error().description;
    EXPECT_FALSE(*none);
    EXPECT_FALSE(DesktopClient::stop().value_or(true));
    ASSERT_FALSE(DesktopClient::capture("note"));
    EXPECT_NE(DesktopClient::capture("note").error().description.find("snipwren start"), std::string::npos);

    const StandIn program;
    EXPECT_EQ(DesktopClient::status()->value_or(""), R"({"pid":7,"listening":true})");
    EXPECT_TRUE(*DesktopClient::capture("note"));
    EXPECT_FALSE(*DesktopClient::capture("nonsense"));
    EXPECT_TRUE(*DesktopClient::stop());
    EXPECT_FALSE(*DesktopClient::status());
}

TEST(DesktopClient, TellsWhyAProgramDidNotStart) {
    const TemporaryFolder folder;
    const std::string program = folder.path() + "/program";
    const auto withScript = [&](const std::string& script) {
        PosixFileIO files;
        EXPECT_TRUE(files.writeAtomic(program, "#!/bin/sh\n" + script, 0700));
        const auto started = DesktopClient::start(program);
        return started ? std::string("started") : started.error().description;
    };
    EXPECT_EQ(withScript("echo 'No display here.' >&2; exit 1"), "No display here.");
    EXPECT_NE(withScript("exit 1").find("snipwren doctor"), std::string::npos);
    EXPECT_NE(DesktopClient::start("").error().description.find("not installed"), std::string::npos);
    EXPECT_NE(DesktopClient::start("/nonexistent").error().description.find("could not be started"), std::string::npos);
}

TEST(DesktopDoctor, JudgesThisSession) {
    const TemporaryFolder folder;
    Environment environment(Paths::under(folder.path()));
    const auto verdicts = [&](bool selfTest) {
        std::string text;
        for (const auto& finding : DesktopDoctor(environment).examine(selfTest)) {
            text += finding.subject + (finding.verdict == DesktopDoctor::Verdict::good ? " good\n" : " not good\n");
            EXPECT_FALSE(finding.sentence.empty()) << finding.subject;
        }
        return text;
    };
    const std::string here = verdicts(true);
    for (const char* const wanted :
         {"Session good\n", "Key tap good\n", "Posted keys good\n", "Session bus good\n", "Accessibility good\n",
          "Notifications not good\n", "Files good\n", "Snipwren not good\n", "Self-test good\n"})
        EXPECT_NE(here.find(wanted), std::string::npos) << wanted << here;
    {
        const StandIn program;
        EXPECT_NE(verdicts(true).find("Self-test not good"), std::string::npos) << "it holds the keys";
    }
    const std::string display = std::getenv("DISPLAY");
    setenv("DISPLAY", ":987", 1);
    EXPECT_NE(verdicts(false).find("Key tap not good"), std::string::npos);
    unsetenv("DISPLAY");
    EXPECT_NE(verdicts(false).find("Session not good"), std::string::npos);
    setenv("DISPLAY", display.c_str(), 1);
}
} // namespace
} // namespace snipwren
