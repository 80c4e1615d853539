#include <sstream>

#include <gtest/gtest.h>

#include "cli/CommandLine.h"
#include "cli/PickerChoice.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
TEST(PickerChoice, TakesAnExactNameAndListsTheRest) {
    const std::vector<PickerOption> options{
        {"C1", "#general"}, {"C2", "#ana"}, {"U1", "@ana"}, {"C3", "#Twin"}, {"C4", "#Twin"}};
    const std::vector<PickerOption> similar{{"C1", "#general"}};
    for (const auto& [name, id] : {std::pair{"#general", "C1"}, {"general", "C1"}, {"@ana", "U1"}, {"C4", "C4"}}) {
        const auto chosen = chooseOption(options, similar, name);
        ASSERT_TRUE(chosen) << name;
        EXPECT_EQ(chosen->id, id) << name;
    }
    EXPECT_NE(chooseOption(options, {}, "ana").error().find("\n  #ana  (C2)\n  @ana  (U1)"), std::string::npos);
    EXPECT_NE(chooseOption(options, {}, "#Twin").error().find("(C3)\n  #Twin  (C4)"), std::string::npos);
    EXPECT_EQ(chooseOption(options, similar, "#gen").error(),
              "There is no conversation \"#gen\"; nothing was sent. Did you mean:\n  #general  (C1)");
    EXPECT_FALSE(chooseOption(options, similar, "#GENERAL"));
}

TEST(SlackCommand, KeepsTheTextThatHasNowhereToGo) {
    const TemporaryFolder folder;
    Environment environment(Paths::under(folder.path()));
    const auto run = [&](std::vector<const char*> arguments) {
        std::istringstream in;
        std::ostringstream out, err;
        arguments.insert(arguments.begin(), "snipwren");
        const int status =
            runCommandLine(static_cast<int>(arguments.size()), arguments.data(), in, out, err, environment);
        return std::to_string(status) + " " + out.str() + err.str();
    };
    EXPECT_NE(run({"capture", "slack", "hello"}).find("1 snipwren: Capture failed: Say where with --to."),
              std::string::npos);
    const std::string unconnected = run({"capture", "slack", "--to", "#general", "hello"});
    EXPECT_NE(unconnected.find("The conversations could not be loaded; nothing was sent."), std::string::npos);
    EXPECT_NE(unconnected.find("Saved to local recovery log."), std::string::npos);
    EXPECT_NE(run({"slack", "channels"}).find("1 snipwren: The conversations could not be loaded."), std::string::npos);
    EXPECT_NE(environment.files().read(environment.paths().logFile).value_or("").find("Slack not connected"),
              std::string::npos);
    EXPECT_NE(run({"capture", "note", "--to", "#general", "x"}).find("one place only"), std::string::npos);
}
} // namespace
} // namespace snipwren
