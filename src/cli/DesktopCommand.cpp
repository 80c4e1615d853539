#include <algorithm>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "app/DesktopClient.h"
#include "app/DesktopDoctor.h"
#include "cli/Command.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

void start(CommandContext& context) {
    const auto status = DesktopClient::status();
    if (!status) return context.fail(status.error().description);
    if (*status) {
        context.out << "Snipwren runs already.\n";
        return;
    }
    if (const auto started = DesktopClient::start(DesktopClient::findProgram()); !started)
        return context.fail(started.error().description);
    context.out << "Snipwren is running. Type // and a command word anywhere, for example: //note\n";
}

/// False when it failed.
bool stop(CommandContext& context) {
    const auto stopped = DesktopClient::stop();
    if (!stopped) {
        context.fail(stopped.error().description);
        return false;
    }
    context.out << (*stopped ? "Snipwren has ended.\n" : "Snipwren is not running.\n");
    return true;
}

const char* yesNo(const Json& status, const char* key) { return status.value(key, false) ? "yes" : "no"; }

void showStatus(CommandContext& context, bool asJson) {
    const auto answer = DesktopClient::status();
    if (!answer) return context.fail(answer.error().description);
    if (!*answer) {
        if (asJson) context.out << "{\"running\":false}\n";
        return context.fail("Snipwren is not running. Try: snipwren start");
    }
    Json status = Json::parse(**answer, nullptr, false);
    if (!status.is_object()) return context.fail("The running Snipwren gave an answer that cannot be read.");
    status["running"] = true;
    if (asJson) {
        context.out << status.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
        return;
    }
    context.out << "Snipwren " << status.value("version", "?") << " is running (process " << status.value("pid", 0)
                << ").\n"
                << "Listening to keys: " << yesNo(status, "listening") << "\n"
                << "Paused:            " << yesNo(status, "paused") << "\n"
                << "Accessibility:     " << yesNo(status, "accessibility") << "\n"
                << "Status item:       " << yesNo(status, "statusItem") << "\n";
    for (const Json& lane : status.value("waiting", Json::array()))
        context.out << "Waiting:           " << lane.value("captures", 0) << " with //" << lane.value("target", "?")
                    << ", for " << lane.value("seconds", 0) << " seconds\n";
    if (status.value("stoppedForGood", false))
        context.out << "The keyboard listener paused after repeated timeouts. Try: snipwren restart\n";
}

void examine(CommandContext& context, bool asJson, bool selfTest) {
    using Verdict = DesktopDoctor::Verdict;
    const auto findings = DesktopDoctor(context.environment).examine(selfTest);
    const auto word = [](Verdict verdict) {
        switch (verdict) {
        case Verdict::good: return "good";
        case Verdict::limited: return "limited";
        case Verdict::bad: return "bad";
        }
        return "";
    };
    if (asJson) {
        Json list = Json::array();
        for (const auto& finding : findings)
            list.push_back(
                {{"subject", finding.subject}, {"verdict", word(finding.verdict)}, {"text", finding.sentence}});
        context.out << list.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
    } else {
        for (const auto& finding : findings) {
            const char* const mark = finding.verdict == Verdict::good      ? "✅"
                                     : finding.verdict == Verdict::limited ? "⚠️ "
                                                                           : "❌";
            context.out << mark << " " << finding.subject << ": " << finding.sentence << "\n";
        }
    }
    const bool bad = std::any_of(findings.begin(), findings.end(),
                                 [](const auto& finding) { return finding.verdict == Verdict::bad; });
    if (bad) context.status = 1;
}
} // namespace

void addDesktopCommands(CLI::App& app, CommandContext& context) {
    const auto asJson = std::make_shared<bool>(false);
    const auto noSelfTest = std::make_shared<bool>(false);
    app.add_subcommand("start", "Start the desktop program of this session")->callback([&context] { start(context); });
    app.add_subcommand("stop", "End the desktop program")->callback([&context] { stop(context); });
    app.add_subcommand("restart", "End the desktop program and start it again")->callback([&context] {
        if (stop(context)) start(context);
    });
    CLI::App* const status = app.add_subcommand("status", "Show whether the desktop program runs and what works");
    status->add_flag("--json", *asJson, "As JSON");
    status->callback([&context, asJson] { showStatus(context, *asJson); });
    CLI::App* const doctor = app.add_subcommand("doctor", "Check everything that captures need of this session");
    doctor->add_flag("--json", *asJson, "As JSON");
    doctor->add_flag("--no-self-test", *noSelfTest, "Do not type into a test window");
    doctor->callback([&context, asJson, noSelfTest] { examine(context, *asJson, !*noSelfTest); });
}
} // namespace snipwren
