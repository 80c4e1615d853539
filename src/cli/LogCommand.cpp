#include <algorithm>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "app/LocalStore.h"
#include "app/MachineParts.h"
#include "app/SystemServices.h"
#include "cli/CaptureSession.h"
#include "cli/Command.h"
#include "cli/PickerChoice.h"
#include "cli/Printable.h"
#include "cli/StoreAccess.h"

namespace snipwren {
namespace {
struct Options {
    std::size_t limit = FallbackCaptureLogger::defaultLimit;
    bool json = false;
};

/// The record stays in the log whatever the outcome: only the user clears it.
void retry(CommandContext& context, const std::string& id, const std::string& to) {
    const auto pasteboard = makeCommandPasteboard();
    SystemServices services(context.environment);
    CaptureSession session(context, {pasteboard.get(), &services.notificationCenter(), &services.eventStore()});
    const auto entries = session.application().recoveryLog().readEntries(SIZE_MAX);
    const auto entry = std::ranges::find(entries, id, &FallbackCaptureLogger::Entry::id);
    if (entry == entries.end())
        return context.fail("The recovery log has no record \"" + printable(id) + "\". Try: snipwren log");
    CaptureTarget* const target = session.application().targets().find(entry->target);
    if (!target)
        return context.fail("There is no command word \"" + printable(entry->target) + "\". Try: snipwren targets");
    std::optional<PickerOption> option;
    if (target->needsPicker()) {
        const auto options = target->pickerOptions({});
        auto chosen = chooseOption(options, target->filteredOptions(to), to);
        if (to.empty() || !chosen)
            return context.fail(to.empty() ? "Say where with --to. Try: snipwren log retry \"" + printable(id)
                                                 + "\" --to '#general'"
                                           : chosen.error());
        option = *std::move(chosen);
    }
    const auto accepted = session.application().delivery().accept(
        {.id = {}, .target = entry->target, .text = entry->text, .option = option, .isInRecoveryLog = true});
    if (!accepted) return context.fail(accepted.error().description);
    session.settle();
    for (const Landing& landing : session.host().landings()) context.out << printable(landing.receipt) << "\n";
    for (const auto& failure : session.failures()) context.fail(failure.message);
}

void list(CommandContext& context, const Options& options) {
    LocalStore store(context.environment);
    const auto entries = store.recoveryLog().readEntries(options.limit);
    if (options.json) {
        auto all = nlohmann::json::array();
        for (const auto& entry : entries)
            all.push_back({{"id", entry.id},
                           {"timestamp", isoUtc(entry.timestamp)},
                           {"target", entry.target},
                           {"error", entry.errorDescription},
                           {"text", entry.text}});
        return printJson(context, all);
    }
    for (const auto& entry : entries)
        context.out << entry.id << "  " << printable(entry.target) << "  " << printable(entry.text) << "\n    "
                    << printable(entry.errorDescription) << "\n";
    if (entries.empty()) context.out << "The recovery log is empty.\n";
}
} // namespace

void addLogCommand(CLI::App& app, CommandContext& context) {
    const auto options = std::make_shared<Options>();
    CLI::App* log = app.add_subcommand("log", "List the captures that did not reach their target, newest first");
    log->footer("Examples:\n  snipwren log --json\n  snipwren log retry \"2025-03-04T09:15:02Z#0\"");
    log->add_option("--limit", options->limit, "At most so many")->check(CLI::Range(1, 1000000));
    log->add_flag("--json", options->json, "As a JSON list");
    CLI::App* clear = log->add_subcommand("clear", "Forget them");
    clear->callback([&context] {
        LocalStore store(context.environment);
        if (const auto cleared = store.recoveryLog().clearLog(); !cleared)
            return context.fail("Could not clear log: " + cleared.error().description);
        context.out << "Error log cleared.\n";
    });
    const auto id = std::make_shared<std::string>();
    CLI::App* again = log->add_subcommand("retry", "Send one of them to its target again");
    again->add_option("ID", *id, "The record, as the list shows it")->required();
    const auto to = std::make_shared<std::string>();
    again->add_option("--to", *to, "The channel or person, for a target that asks for one: '#general', '@ana'");
    again->callback([&context, id, to] { retry(context, *id, *to); });
    log->callback([&context, options, clear, again] {
        if (!clear->parsed() && !again->parsed()) list(context, *options);
    });
}
} // namespace snipwren
