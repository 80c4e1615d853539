#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "app/Environment.h"

namespace CLI {
class App;
}

namespace snipwren {
/// What a command of the command line is handed: the streams and the base services. Exit status 0 is success, 1 a failure
/// that was told on `err`, 2 wrong usage.
struct CommandContext {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    Environment& environment;
    /// Set by the command that ran.
    int status = 0;

    /// Tells the sentence on `err` and makes the status 1.
    void fail(const std::string& sentence);
    /// The arguments joined by blanks, or all of standard input when there are none or the only one is "-".
    std::string textFrom(const std::vector<std::string>& words) const;
};

/// A command group adds its subcommands to the application, with callbacks that act on the context, which outlives them.
/// Each group stands in its own file (ConfigCommand.cpp) and is listed once in CommandLine.cpp.
using AddCommand = void (*)(CLI::App& app, CommandContext& context);

void addAICommand(CLI::App& app, CommandContext& context);
void addCaptureCommand(CLI::App& app, CommandContext& context);
void addCompletionCommand(CLI::App& app, CommandContext& context);
void addConfigCommand(CLI::App& app, CommandContext& context);
void addDesktopCommands(CLI::App& app, CommandContext& context);
void addContextCommands(CLI::App& app, CommandContext& context);
void addKnowledgeCommands(CLI::App& app, CommandContext& context);
void addNoteTargetCommands(CLI::App& app, CommandContext& context);
void addSlackCommand(CLI::App& app, CommandContext& context);
void addParseCommand(CLI::App& app, CommandContext& context);
void addScheduledCommand(CLI::App& app, CommandContext& context);
void addTargetsCommand(CLI::App& app, CommandContext& context);
void addTypeCommand(CLI::App& app, CommandContext& context);
void addHistoryCommand(CLI::App& app, CommandContext& context);
void addLogCommand(CLI::App& app, CommandContext& context);
void addRulesCommand(CLI::App& app, CommandContext& context);
void addSecretsCommand(CLI::App& app, CommandContext& context);
void addUndoCommand(CLI::App& app, CommandContext& context);
void addUpdateCommand(CLI::App& app, CommandContext& context);
} // namespace snipwren
