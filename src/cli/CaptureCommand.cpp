// `snipwren capture`, `snipwren undo`, `snipwren recover` and `snipwren targets`.
#include <iomanip>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#ifdef SNIPWREN_LINUX_HOST
#include "app/DesktopClient.h"
#endif
#include "app/MachineParts.h"
#include "app/SystemServices.h"
#include "base/Text.h"
#include "cli/CaptureSession.h"
#include "cli/Command.h"
#include "cli/PickerChoice.h"
#include "cli/Printable.h"
#include "targets/CaptureTargetHints.h"

namespace snipwren {
namespace {
std::string knownWords(const CaptureTargets& targets) {
    std::string words;
    for (const std::string& word : targets.commandWords()) words += (words.empty() ? "" : ", ") + word;
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

void tellOutcome(CommandContext& context, CaptureSession& session) {
    for (const Landing& landing : session.host().landings()) {
        context.out << printable(landing.receipt) << "\n";
        if (landing.revealPath) context.out << *landing.revealPath << "\n";
    }
    for (const auto& failure : session.failures()) context.fail(failure.message);
}

void capture(CommandContext& context, const std::string& word, const std::vector<std::string>& words,
             const std::string& to) {
    const std::string text(trimmed(context.textFrom(words)));
    const auto pasteboard = makeCommandPasteboard();
    SystemServices services(context.environment);
    CaptureSession session(context, {pasteboard.get(), &services.notificationCenter(), &services.eventStore()});
    Delivery& delivery = session.application().delivery();
    CaptureTarget* const target = session.application().targets().find(word);
    // What cannot be sent is kept, and said in the same words as any other failure.
    const auto keep = [&](const std::string& reason) {
        delivery.keepUnconfirmed({{}, word, text, {}}, {"CommandLine", 1, reason});
        session.settle();
        tellOutcome(context, session);
    };
    if (text.empty())
        return context.fail("There is no text to capture. Try: snipwren capture " + word + " \""
                            + std::string(CaptureTargetHints::placeholder(word)) + "\"");
    if (!target)
        return keep("There is no command word \"" + printable(word)
                    + "\". Known words: " + knownWords(session.application().targets()) + ".");
    std::optional<PickerOption> option;
    if (target->needsPicker()) {
        auto chosen = choose(context, *target, to);
        if (!chosen) return keep(chosen.error());
        option = *std::move(chosen);
    } else if (!to.empty()) {
        return context.fail("//" + word + " has one place only. Leave out --to.");
    }
    if (const auto missing = target->readiness()) return keep(*missing);
    session.recover();
    if (const auto accepted = delivery.accept({{}, word, text, option}); !accepted)
        return context.fail(accepted.error().description);
    session.settle();
    tellOutcome(context, session);
}

/// What the running program copied, only that program can take from the clipboard again.
bool undoneByDesktop(CommandContext& context) {
#ifdef SNIPWREN_LINUX_HOST
    const auto answer = DesktopClient::undo();
    if (!answer || !*answer) return false;
    const auto& [done, sentence] = **answer;
    done ? void(context.out << sentence << "\n") : context.fail(sentence);
    return true;
#else
    (void)context;
    return false;
#endif
}

void undo(CommandContext& context) {
    if (undoneByDesktop(context)) return;
    const auto pasteboard = makeCommandPasteboard();
    SystemServices services(context.environment);
    CaptureSession session(context, {pasteboard.get(), &services.notificationCenter(), &services.eventStore()});
    // Shared: a target that is stuck may answer after this function has given up.
    const auto outcome = std::make_shared<std::optional<Result<std::string, CaptureError>>>();
    ThreadQueue& loop = context.environment.loop();
    session.application().delivery().undoLast([&loop, outcome](const Result<std::string, CaptureError>& answer) {
        loop.runOrAsync([outcome, answer] { *outcome = answer; });
    });
    if (!loop.runUntil([&] { return outcome->has_value(); }, std::chrono::seconds(20)))
        return context.fail("The target does not answer, so nothing was undone. Try again later.");
    const auto& undone = **outcome;
    if (!undone) return context.fail(undone.error().description);
    context.out << *undone << "\n";
}

void recover(CommandContext& context) {
    const auto pasteboard = makeCommandPasteboard();
    SystemServices services(context.environment);
    CaptureSession session(context, {pasteboard.get(), &services.notificationCenter(), &services.eventStore()});
    const auto recovered = session.recover();
    for (const auto& capture : recovered.delivering)
        context.out << "delivered  //" << capture.target << " " << printable(capture.text) << "\n";
    for (const auto& capture : recovered.kept)
        context.out << "kept       //" << capture.target << " " << printable(capture.text) << "\n";
    if (recovered.delivering.empty() && recovered.kept.empty())
        context.out << "No capture was left without an outcome.\n";
    for (const auto& failure : session.failures()) context.err << "snipwren: " << failure.message << "\n";
}

void listTargets(CommandContext& context) {
    for (const std::string_view word : CaptureTargetHints::commandWords()) {
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
        CaptureSession session(context);
        CaptureTarget* const target = session.application().targets().find("slack");
        if (!target || target->pickerOptions({}).empty())
            return context.fail("The conversations could not be loaded. The reason stands in \""
                                + context.environment.paths().logFile + "\".");
        for (const PickerOption& option : target->filteredOptions(*query))
            context.out << option.displayName << "\t" << option.id << "\n";
    });
}

void addUndoCommand(CLI::App& app, CommandContext& context) {
    app.add_subcommand("undo", "Take the last capture back, where its target can")->callback([&context] {
        undo(context);
    });
    app.add_subcommand("recover", "Deliver or keep what a program left behind that ended unexpectedly")
        ->callback([&context] { recover(context); });
}

void addTargetsCommand(CLI::App& app, CommandContext& context) {
    app.add_subcommand("targets", "List the command words and what they do")->callback([&context] {
        listTargets(context);
    });
}
} // namespace snipwren
