// `snipwren obsidian check` and `snipwren logseq check`: where captures go, and why they might not.
#include <ostream>

#include <CLI/CLI.hpp>

#include "cli/Command.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"

namespace snipwren {
namespace {
void checkObsidian(CommandContext& context) {
    Environment& e = context.environment;
    const ObsidianTarget target({e.files(), e.paths(), e.defaults(), e.calendar(), e.log()});
    const std::string setting = target.vaultSetting();
    context.out << ObsidianVaultPath::verdict(setting, e.files(), e.paths().home) << "\n";
    if (setting.empty()) {
        context.err << "Try: snipwren config set " << ObsidianTarget::vaultKey << " ~/Vault\n";
        context.status = 1;
        return;
    }
    const auto destination = target.destination(e.clock().now());
    if (!destination) {
        context.status = 1;
        // A folder that is missing has been told by the verdict.
        if (destination.error().code != ObsidianVaultPath::notAFolder) context.fail(destination.error().description);
    } else {
        context.out << "A capture now goes to: " << destination->note << "\n";
        if (!destination->templateFile.empty() && !e.files().exists(destination->templateFile))
            context.err << "Warning: the template \"" << destination->templateFile
                        << "\" does not exist; new notes begin empty.\n";
    }
    const std::string format = target.configuredFormat();
    std::string lost;
    for (const std::string& token : ObsidianTarget::tokensNotCarriedOver(format))
        lost += (lost.empty() ? "\"" : ", \"") + token + "\"";
    if (!lost.empty())
        context.err << "Warning: the daily notes format \"" << format << "\" uses " << lost
                    << ", which captures read differently: the note may not be Obsidian's own. Try: YYYY-MM-DD\n";
}

void checkLogseq(CommandContext& context) {
    Environment& e = context.environment;
    const LogseqTarget target({e.files(), e.paths(), e.defaults(), e.calendar(), e.log()});
    const auto path = target.journalPath(e.clock().now());
    if (!path) return context.fail(path.error().description);
    const std::string graph = parentPath(parentPath(*path));
    if (!e.files().isFolder(graph))
        return context.fail("The Logseq graph \"" + graph
                            + "\" does not exist or is not a folder. Try: snipwren config set " + LogseqTarget::graphKey
                            + " ~/Graph");
    context.out << "A capture now goes to: " << *path << "\n";
    for (const std::string& warning : target.warnings()) context.err << "Warning: " << warning << "\n";
}
} // namespace

void addNoteTargetCommands(CLI::App& app, CommandContext& context) {
    CLI::App* obsidian = app.add_subcommand("obsidian", "Captures into an Obsidian vault");
    obsidian->require_subcommand(1);
    obsidian->add_subcommand("check", "Show the vault that was found and the note that a capture goes to now")
        ->callback([&context] { checkObsidian(context); });
    CLI::App* logseq = app.add_subcommand("logseq", "Captures into a Logseq graph");
    logseq->require_subcommand(1);
    logseq->add_subcommand("check", "Show the journal that a capture goes to now")->callback([&context] {
        checkLogseq(context);
    });
}
} // namespace snipwren
