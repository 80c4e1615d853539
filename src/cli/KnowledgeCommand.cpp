#include <algorithm>
#include <iostream>
#include <memory>
#include <ostream>
#include <thread>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/Command.h"
#include "context/graph/KnowledgeQuery.h"
#include "context/graph/KnowledgeSuggestionEngine.h"
#include "context/notes/SecondBrainIndexer.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

void print(std::ostream& out, const Json& json) {
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

/// The index of this program, opened on first use.
struct Brain {
    explicit Brain(Environment& environment)
        : database(SecondBrainIndexer::queueLabel),
          rebuilds(SecondBrainIndexer::rebuildQueueLabel),
          indexer({environment.files(), environment.paths(), environment.defaults(), environment.clock(), database,
                   rebuilds, environment.mainQueue(), environment.log(),
                   std::clamp(std::thread::hardware_concurrency(), 1u, 4u)}),
          engine(indexer, environment.random()) {
        database.start();
        rebuilds.start();
    }
    ThreadQueue database;
    ThreadQueue rebuilds;
    SecondBrainIndexer indexer;
    KnowledgeSuggestionEngine engine;
};

std::string counted(std::int64_t count, const char* one) {
    return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

void rebuild(CommandContext& context, Brain& brain) {
    // A file or a pipe gets the result only; so does a test.
    const bool onTerminal = &context.err == &std::cerr && ::isatty(STDERR_FILENO) == 1;
    const auto progress = [&](std::size_t done, std::size_t total) {
        constexpr std::size_t width = 30;
        const std::size_t filled = total == 0 ? 0 : done * width / total;
        context.err << fmt::format("\r[{}{}] {} of {}", std::string(filled, '#'), std::string(width - filled, ' '),
                                   done, counted(static_cast<std::int64_t>(total), "file"))
                    << std::flush;
    };
    const SteadyPoint start = context.environment.clock().steadyNow();
    const auto summary = brain.indexer.rebuildIndex({}, onTerminal ? progress : SecondBrainIndexer::Progress());
    const std::chrono::duration<double> took = context.environment.clock().steadyNow() - start;
    if (onTerminal) context.err << "\r\x1b[K" << std::flush; // The bar has served.
    if (!summary) return context.fail(summary.error());
    context.out << fmt::format("Indexed {} from {} in {:.1f} s.\n", counted(summary->documents, "note"),
                               counted(static_cast<std::int64_t>(brain.indexer.indexedFolders().size()), "folder"),
                               took.count());
    if (summary->leftOut > 0)
        context.out << counted(static_cast<std::int64_t>(summary->leftOut), "file")
                    << " could not be indexed; the log names each: " << context.environment.paths().logFile << "\n";
}

void status(CommandContext& context, Brain& brain, bool json) {
    brain.indexer.open();
    struct Found {
        std::int64_t documents = 0;
        std::optional<TimePoint> builtAt;
    };
    const Found found = brain.database.call([&] {
        KnowledgeStore& store = brain.indexer.store();
        return Found{store.count().value_or(0), store.builtAt()};
    });
    const std::vector<std::string> folders = brain.indexer.indexedFolders();
    if (json)
        return print(context.out, {{"documentCount", found.documents},
                                   {"lastIndexedTime", found.builtAt ? Json(isoUtc(*found.builtAt)) : Json()},
                                   {"indexedFolders", folders}});
    context.out << counted(found.documents, "note") << " in the index, from "
                << counted(static_cast<std::int64_t>(folders.size()), "folder") << ".\n";
    if (found.builtAt)
        context.out << "Last rebuilt: "
                    << context.environment.calendar().formatPosix(*found.builtAt, "yyyy-MM-dd HH:mm:ss") << "\n";
    else
        context.out << "Never rebuilt. Try: snipwren index add ~/Notes\n";
}

void search(CommandContext& context, const std::string& text, std::size_t limit, bool json) {
    if (limit == 0) return context.fail("The limit must be at least 1. Try: --limit 10");
    Brain brain(context.environment);
    const std::size_t words = KnowledgeQuery::wordCount(text);
    if (words == 0) return context.fail("There is nothing to search for. Try: snipwren search deploy cluster");
    const auto found = brain.engine.find(text, limit);
    if (json) {
        Json results = Json::array();
        for (const KnowledgeSuggestionModel& model : found)
            results.push_back({{"title", model.title},
                               {"snippet", model.snippet},
                               {"path", model.filePath},
                               {"source", model.sourceName}});
        return print(context.out, results);
    }
    if (words < KnowledgeSuggestionEngine::minimumWords)
        context.err << "Searching for " << (words == 1 ? "one word" : "two words")
                    << ": only this command does; suggestions while typing begin at three.\n";
    if (found.empty()) context.out << "No note has all of these words.\n";
    for (const KnowledgeSuggestionModel& model : found)
        context.out << model.title << "  (" << model.sourceName << ")\n  " << model.snippet << "\n  " << model.filePath
                    << "\n";
}
} // namespace

void addKnowledgeCommands(CLI::App& app, CommandContext& context) {
    CLI::App* index = app.add_subcommand("index", "The full-text index of your note folders");
    index->require_subcommand(1);
    index->footer("Example:\n  snipwren index add ~/Notes");
    const auto folder = std::make_shared<std::string>();
    const auto json = std::make_shared<bool>(false);

    CLI::App* add = index->add_subcommand("add", "Index the Markdown, text and Org files below a folder");
    add->add_option("FOLDER", *folder, "The folder")->required();
    add->callback([&context, folder] {
        Brain brain(context.environment);
        const auto added = brain.indexer.listFolder(*folder);
        if (!added) return context.fail(added.error());
        if (!*added) context.out << "This folder is already indexed.\n";
        if (*added) rebuild(context, brain);
    });

    CLI::App* remove = index->add_subcommand("remove", "Take a folder out of the index");
    remove->add_option("FOLDER", *folder, "The folder")->required();
    remove->callback([&context, folder] {
        Brain brain(context.environment);
        const auto removed = brain.indexer.unlistFolder(*folder);
        if (!removed) return context.fail(removed.error());
        if (!*removed) return context.fail("\"" + *folder + "\" is not an indexed folder. Try: snipwren index list");
        rebuild(context, brain);
    });

    index->add_subcommand("list", "Show the indexed folders")->callback([&context] {
        for (const std::string& path : Brain(context.environment).indexer.indexedFolders()) context.out << path << "\n";
    });
    index->add_subcommand("rebuild", "Read all folders again")->callback([&context] {
        Brain brain(context.environment);
        rebuild(context, brain);
    });
    CLI::App* state = index->add_subcommand("status", "Show what the index holds");
    state->add_flag("--json", *json, "Print one JSON object");
    state->callback([&context, json] {
        Brain brain(context.environment);
        status(context, brain, *json);
    });

    CLI::App* find = app.add_subcommand("search", "Search your indexed notes");
    const auto words = std::make_shared<std::vector<std::string>>();
    const auto limit = std::make_shared<std::size_t>(10);
    find->add_option("WORDS", *words, "Words that a note must have; each also finds its longer forms")->required();
    find->add_option("--limit", *limit, "The most notes to show")->capture_default_str();
    find->add_flag("--json", *json, "Print a JSON list");
    find->callback([&context, words, limit, json] { search(context, context.textFrom(*words), *limit, *json); });
}
} // namespace snipwren
