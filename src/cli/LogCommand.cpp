#include <algorithm>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "app/LocalStore.h"
#include "cli/Command.h"
#include "cli/Printable.h"
#include "cli/StoreAccess.h"

namespace snipwren {
namespace {
struct Options {
    std::size_t limit = FallbackCaptureLogger::defaultLimit;
    bool json = false;
};

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
    log->footer("Example:\n  snipwren log --json");
    log->add_option("--limit", options->limit, "At most so many")->check(CLI::Range(1, 1000000));
    log->add_flag("--json", options->json, "As a JSON list");
    CLI::App* clear = log->add_subcommand("clear", "Forget them");
    clear->callback([&context] {
        LocalStore store(context.environment);
        if (const auto cleared = store.recoveryLog().clearLog(); !cleared)
            return context.fail("Could not clear log: " + cleared.error().description);
        context.out << "Error log cleared.\n";
    });
    log->callback([&context, options, clear] {
        if (!clear->parsed()) list(context, *options);
    });
}
} // namespace snipwren
