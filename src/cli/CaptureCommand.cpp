// `snipwren capture` and `snipwren targets`.
#include <iomanip>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "app/SystemServices.h"
#include "base/Text.h"
#include "capture/CaptureTargetHints.h"
#include "cli/CaptureSession.h"
#include "cli/Command.h"
#include "cli/PickerChoice.h"
#include "platform/portable/CommandPasteboard.h"

namespace snipwren {
namespace {
std::string knownWords(const CaptureRouterController& router) {
    std::string words;
    for (const auto& target : router.registeredTargets()) words += (words.empty() ? "" : ", ") + target->commandName();
    return words;
}

/// What --to names; the error is a sentence.
Result<PickerOption, std::string> choose(CommandContext& context, CaptureTarget& target, const std::string& to) {
    if (to.empty())
        return unexpected("Say where with --to. Try: snipwren capture " + target.commandName()
                          + " --to '#general' TEXT");
    const auto options = target.pickerOptions({});
    if (options.empty())
        return unexpected("The conversations could not be loaded; nothing was sent. The reason stands in \""
                          + context.environment.paths().logFile + "\".");
    return chooseOption(options, target.filteredOptions(to), to);
}

/// Goes the way of a user: opens the list, moves to the option and confirms it.
void confirm(CommandContext& context, CaptureRouterController& router, const PickerOption& option) {
    constexpr auto longest = std::chrono::seconds(60);
    context.environment.loop().runUntil([&] { return !router.state().isLoadingOptions; }, longest);
    router.handleMessageInputChange("");
    for (std::size_t i = 0; i < router.state().shownOptions.size() && router.state().selectedOption != option; ++i)
        router.moveSelection(1);
    if (router.state().selectedOption == option) router.confirmSelectedTarget();
}

void capture(CommandContext& context, const std::string& word, const std::vector<std::string>& words,
             const std::string& to) {
    const std::string text(trimmed(context.textFrom(words)));
    CommandPasteboard pasteboard;
    SystemServices services(context.environment);
    CaptureSession session(context.environment, {&pasteboard, &services.notificationCenter(), &services.eventStore()});
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
    std::optional<PickerOption> option;
    if (target->needsPicker()) {
        auto chosen = choose(context, *target, to);
        if (!chosen) {
            context.fail(chosen.error());
            if (session.application().recoveryLog().saveFallback(text, word, chosen.error()))
                context.err << "snipwren: Your text was saved to the local recovery log.\n";
            return;
        }
        option = *std::move(chosen);
    } else if (!to.empty()) {
        context.fail("//" + word + " has one place only. Leave out --to.");
        return;
    }
    router.enterCaptureModeUI(*target);
    session.settle();
    if (router.state().currentTarget) {
        if (option) confirm(context, router, *option);
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
    const auto to = std::make_shared<std::string>();
    CLI::App* capture = app.add_subcommand("capture", "Send a text to a target, without typing a trigger");
    capture->add_option("WORD", *word, "The command word; \"snipwren targets\" lists them")->required();
    capture->add_option("TEXT", *words, "The text; standard input when there is none");
    capture->add_option("--to", *to, "The channel or person, for a target that asks for one: '#general', '@ana'");
    capture->footer("Examples:\n  snipwren capture note buy milk\n  git log -1 --format=%s | snipwren capture note");
    capture->callback([&context, word, words, to] { snipwren::capture(context, *word, *words, *to); });
}

void addSlackCommand(CLI::App& app, CommandContext& context) {
    CLI::App* slack = app.add_subcommand("slack", "The Slack workspace that captures go to");
    slack->require_subcommand(1);
    const auto query = std::make_shared<std::string>();
    CLI::App* channels = slack->add_subcommand("channels", "List the channels and people that a capture can go to");
    channels->add_option("QUERY", *query, "Only those that match, best first");
    channels->callback([&context, query] {
        CaptureSession session(context.environment);
        CaptureTarget* const target = session.application().router().target("slack");
        if (!target || target->pickerOptions({}).empty())
            return context.fail("The conversations could not be loaded. The reason stands in \""
                                + context.environment.paths().logFile + "\".");
        for (const PickerOption& option : target->filteredOptions(*query))
            context.out << option.displayName << "\t" << option.id << "\n";
    });
}

void addTargetsCommand(CLI::App& app, CommandContext& context) {
    app.add_subcommand("targets", "List the command words and what they do")->callback([&context] {
        listTargets(context);
    });
}
} // namespace snipwren
