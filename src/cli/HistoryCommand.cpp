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
    std::vector<std::string> words;
    std::int32_t limit = 200;
    bool json = false;
};

nlohmann::json jsonOf(const CaptureStats& stats) {
    nlohmann::json object{{"today", stats.todayCount},
                          {"week", stats.weekCount},
                          {"total", stats.totalCount},
                          {"streakDays", stats.streakDays},
                          {"bestStreakDays", stats.bestStreakDays}};
    if (stats.lastCaptureAt) object["lastCaptureAt"] = isoUtc(*stats.lastCaptureAt);
    if (stats.lastTarget) object["lastTarget"] = *stats.lastTarget;
    return object;
}

std::string days(int count) { return std::to_string(count) + (count == 1 ? " day" : " days"); }

void list(CommandContext& context, const Options& options) {
    std::string query;
    for (const std::string& word : options.words) query += (query.empty() ? "" : " ") + word;
    withDatabase(context, [&](LocalStore& store) {
        const auto entries = store.history().recentEntries(query, options.limit);
        if (options.json) {
            auto all = nlohmann::json::array();
            for (const auto& entry : entries)
                all.push_back({{"id", entry.id},
                               {"target", entry.target},
                               {"text", entry.text},
                               {"success", entry.success},
                               {"createdAt", isoUtc(entry.createdAt)}});
            printJson(context, all);
            return;
        }
        const Calendar& calendar = context.environment.calendar();
        for (const auto& entry : entries)
            context.out << calendar.formatPosix(entry.createdAt, "yyyy-MM-dd HH:mm") << "  "
                        << (entry.success ? "✅" : "❌") << " " << printable(entry.target) << "  "
                        << printable(entry.text) << "\n";
        if (entries.empty()) context.out << (query.empty() ? "No captures yet.\n" : "No capture matches.\n");
    });
}

void showStats(CommandContext& context, bool json) {
    withDatabase(context, [&](LocalStore& store) {
        const Calendar& calendar = context.environment.calendar();
        const CaptureStats stats = store.history().stats(context.environment.clock().now(), calendar);
        if (json) return printJson(context, jsonOf(stats));
        context.out << stats.todayCount << " today · " << stats.weekCount << " this week · Best "
                    << days(stats.bestStreakDays) << "\n"
                    << "Current streak: " << days(stats.streakDays) << "\n"
                    << "Total: " << stats.totalCount << "\n";
        if (stats.lastCaptureAt)
            context.out << "Last capture: " << calendar.formatPosix(*stats.lastCaptureAt, "yyyy-MM-dd HH:mm") << " ("
                        << printable(stats.lastTarget.value_or("")) << ")\n";
    });
}
} // namespace

void addHistoryCommand(CLI::App& app, CommandContext& context) {
    const auto options = std::make_shared<Options>();
    CLI::App* history = app.add_subcommand("history", "List the latest captures, newest first");
    history->footer("Examples:\n  snipwren history --limit 20\n  snipwren history slack\n  snipwren history clear");
    history->add_option("QUERY", options->words,
                        "Only captures whose text or target holds this; % and _ are wildcards");
    history->add_option("--limit", options->limit, "At most so many")->check(CLI::Range(1, 1000000));
    history->add_flag("--json", options->json, "As a JSON list");
    CLI::App* clear = history->add_subcommand("clear", "Forget all captures");
    clear->callback([&context, options] {
        if (!options->words.empty())
            return context.fail(
                "\"history clear\" takes no text. Nothing was cleared. To search for the word \"clear\", "
                "try: snipwren history -- clear");
        withDatabase(context, [&](LocalStore& store) {
            store.history().clearAll();
            if (!store.history().recentEntries("", 1).empty()) return context.fail("Could not clear the history.");
            // With what the journal holds for undoing and offering again; what is on its way stays.
            if (const auto forgotten = store.journal().forgetFinished(); !forgotten)
                return context.fail("The history is cleared, but " + forgotten.error().description);
            context.out << "History cleared.\n";
        });
    });
    history->callback([&context, options, clear] {
        if (!clear->parsed()) list(context, *options);
    });

    const auto json = std::make_shared<bool>();
    CLI::App* stats = app.add_subcommand("stats", "Count the captures and the days in a row");
    stats->add_flag("--json", *json, "As a JSON object");
    stats->callback([&context, json] { showStats(context, *json); });
}
} // namespace snipwren
