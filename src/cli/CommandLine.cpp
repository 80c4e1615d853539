#include "cli/CommandLine.h"

#include <istream>
#include <iterator>
#include <ostream>

#include <CLI/CLI.hpp>

#include "cli/Command.h"

namespace snipwren {
namespace {
// clang-format off
// One line each, in the order of the help text.
constexpr AddCommand groups[] = {
    addTypeCommand,
    addCaptureCommand,
    addUndoCommand,
    addTargetsCommand,
    addHistoryCommand,
    addLogCommand,
    addRulesCommand,
    addSecretsCommand,
    addScheduledCommand,
    addConfigCommand,
#ifdef SNIPWREN_LINUX_HOST
    addDesktopCommands,
#endif
    addContextCommands,
    addKnowledgeCommands,
    addNoteTargetCommands,
    addSlackCommand,
    addParseCommand,
    addAICommand,
    addUpdateCommand,
    addCompletionCommand,
};
// clang-format on
} // namespace

void CommandContext::fail(const std::string& sentence) {
    err << "snipwren: " << sentence << "\n";
    status = 1;
}

std::string CommandContext::textFrom(const std::vector<std::string>& words) const {
    if (words.empty() || (words.size() == 1 && words.front() == "-"))
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

int runCommandLine(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err,
                   Environment& environment) {
    CommandContext context{in, out, err, environment};
    CLI::App app{"Snipwren captures what you type, wherever you type it, and sends it where it belongs.", "snipwren"};
    app.set_version_flag("--version", "snipwren " SNIPWREN_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->column_width(34);
    for (const AddCommand add : groups) add(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, err) == 0 ? 0 : 2;
    }
    return context.status;
}
} // namespace snipwren
