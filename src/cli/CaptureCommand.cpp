// `snipwren capture` and `snipwren targets`.
#include <iomanip>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "base/Text.h"
#include "capture/CaptureTargetHints.h"
#include "cli/CaptureSession.h"
#include "cli/Command.h"
#include "platform/portable/CommandPasteboard.h"

namespace snipwren {
namespace {
std::string knownWords(const CaptureRouterController& router) {
    std::string words;
    for (const auto& target : router.registeredTargets()) words += (words.empty() ? "" : ", ") + target->commandName();
    return words;
}

void capture(CommandContext& context, const std::string& word, const std::vector<std::string>& words) {
    const std::string text(trimmed(context.textFrom(words)));
    CommandPasteboard pasteboard;
    CaptureSession session(context.environment, &pasteboard);
    CaptureRouterController& router = session.application().router();
    CaptureTarget* target = router.target(word);
    if (!target) {
        const bool kept =
            session.application().recoveryLog().saveFallback(text, word, "There is no such command word.");
        context.fail("There is no command word \"" + word + "\". Known words: " + knownWords(router) + "."
                     + (kept ? " Your text was saved to the local recovery log." : ""));
        return;
    }
    if (text.empty()) {
        context.fail("There is no text to capture. Try: snipwren capture " + word + " \""
                     + std::string(CaptureTargetHints::placeholder(word)) + "\"");
        return;
    }
    router.enterCaptureModeUI(*target);
    session.settle();
    if (router.state().currentTarget) {
        router.handleMessageInputChange(text);
        router.commitCapture();
        session.settle();
    } else if (session.application().recoveryLog().saveFallback(text, word, "The target is not set up.")) {
        context.err << "snipwren: Your text was saved to the local recovery log.\n";
    }
    for (const Landing& landing : session.host().landings()) {
        context.out << landing.receipt << "\n";
        if (landing.revealPath) context.out << *landing.revealPath << "\n";
    }
    for (const auto& failure : session.failures()) context.fail(failure.message);
}

void listTargets(CommandContext& context) {
    CaptureSession session(context.environment);
    for (const auto& target : session.application().router().registeredTargets()) {
        const std::string& word = target->commandName();
        const auto banner = CaptureTargetHints::banner(word);
        context.out << "//" << std::left << std::setw(11) << word << (banner ? banner->subtitle : "") << "\n"
                    << std::string(13, ' ') << "for example: " << CaptureTargetHints::placeholder(word) << "\n";
    }
}
} // namespace

void addCaptureCommand(CLI::App& app, CommandContext& context) {
    const auto word = std::make_shared<std::string>();
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* capture = app.add_subcommand("capture", "Send a text to a target, without typing a trigger");
    capture->add_option("WORD", *word, "The command word; \"snipwren targets\" lists them")->required();
    capture->add_option("TEXT", *words, "The text; standard input when there is none");
    capture->footer("Examples:\n  snipwren capture note buy milk\n  git log -1 --format=%s | snipwren capture note");
    capture->callback([&context, word, words] { snipwren::capture(context, *word, *words); });
}

void addTargetsCommand(CLI::App& app, CommandContext& context) {
    app.add_subcommand("targets", "List the command words and what they do")->callback([&context] {
        listTargets(context);
    });
}
} // namespace snipwren
