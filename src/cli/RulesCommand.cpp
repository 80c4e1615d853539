#include <algorithm>
#include <ostream>

#include <CLI/CLI.hpp>

#include "app/LocalStore.h"
#include "base/Text.h"
#include "cli/Command.h"
#include "cli/Printable.h"
#include "cli/StoreAccess.h"
#include "store/MistakeShield.h"
#include "store/RulesSchema.h"

namespace snipwren {
namespace {
void listRules(CommandContext& context) {
    withDatabase(context, [&](LocalStore& store) {
        for (const auto& rule : store.database().fetchRulesConfig())
            context.out << printable(rule.at("id")) << "  " << (rule.at("is_enabled") == "1" ? "on " : "off") << "  "
                        << printable(rule.at("severity")) << "  " << printable(rule.at("name")) << ": "
                        << printable(rule.at("description")) << "\n";
    });
}

void switchRule(CommandContext& context, const std::string& id, bool isEnabled) {
    withDatabase(context, [&](LocalStore& store) {
        const auto rules = store.database().fetchRulesConfig();
        if (std::ranges::none_of(rules, [&](const auto& rule) { return rule.at("id") == id; }))
            return context.fail("There is no rule \"" + printable(id) + "\". Try: snipwren rules list");
        if (!store.database().updateRuleEnabled(id, isEnabled))
            return context.fail("Could not change the rule. Try again when the disk has room.");
        context.out << id << (isEnabled ? " is on.\n" : " is off.\n");
    });
}

void checkText(CommandContext& context, const std::string& text) {
    withDatabase(context, [&](LocalStore& store) {
        const auto hits = MistakeShield(store.database()).review(text);
        for (const auto& hit : hits)
            context.out << printable(hit.id) << "  " << printable(hit.severity) << "  " << printable(hit.name) << ": "
                        << printable(hit.description) << "\n";
        if (hits.empty()) context.out << "No rule matches.\n";
        if (!hits.empty()) context.status = 1; // As a checker in a script does.
    });
}

void listExclusions(CommandContext& context) {
    withDatabase(context, [&](LocalStore& store) {
        for (const auto& exclusion : store.database().fetchExclusionDetails())
            context.out << printable(exclusion.at("id")) << "  " << printable(exclusion.at("reasoning")) << "\n";
    });
}

void addExclusion(CommandContext& context, const std::string& id, const std::string& reason) {
    const std::string kept(trimmed(id));
    if (kept.empty() || !isValidUtf8(kept) || !isValidUtf8(reason))
        return context.fail("The application's identifier must not be empty. Try: snipwren exclusions add firefox");
    withDatabase(context, [&](LocalStore& store) {
        if (!store.database().addExclusion(kept, "app", reason))
            return context.fail("Could not add the exclusion. Try again when the disk has room.");
        context.out << printable(kept) << " is excluded.\n";
    });
}

void removeExclusion(CommandContext& context, const std::string& id) {
    withDatabase(context, [&](LocalStore& store) {
        const auto excluded = store.database().fetchExclusionList();
        if (std::ranges::find(excluded, id) == excluded.end())
            return context.fail("\"" + printable(id) + "\" is not excluded. Try: snipwren exclusions list");
        if (!store.database().deleteExclusion(id))
            return context.fail("Could not remove the exclusion. Try again when the disk has room.");
        context.out << printable(id) << " is no longer excluded.";
        if (std::ranges::any_of(RulesSchema::exclusions(), [&](const auto& seeded) { return id == seeded.id; }))
            context.out << " It comes back at the next start: password managers are always protected.";
        context.out << "\n";
    });
}
} // namespace

void addRulesCommand(CLI::App& app, CommandContext& context) {
    const auto id = std::make_shared<std::string>();
    const auto reason = std::make_shared<std::string>();
    const auto words = std::make_shared<std::vector<std::string>>();

    CLI::App* rules = app.add_subcommand("rules", "Show, switch and try the rules that find typing mistakes");
    rules->require_subcommand(1);
    rules->footer("Example:\n  snipwren rules check \"DELETE FROM users\"");
    rules->add_subcommand("list", "Show every rule")->callback([&context] { listRules(context); });
    for (const bool isEnabled : {true, false}) {
        CLI::App* change = rules->add_subcommand(isEnabled ? "enable" : "disable",
                                                 isEnabled ? "Switch a rule on" : "Switch a rule off");
        change->add_option("ID", *id, "The rule, such as M001")->required();
        change->callback([&context, id, isEnabled] { switchRule(context, *id, isEnabled); });
    }
    CLI::App* check =
        rules->add_subcommand("check", "Name the rules that a text breaks; the status is 1 if there are any");
    check->add_option("TEXT", *words, "The text; standard input when absent or \"-\"");
    check->callback([&context, words] { checkText(context, context.textFrom(*words)); });

    CLI::App* exclusions = app.add_subcommand("exclusions", "The applications that Snipwren keeps out of");
    exclusions->require_subcommand(1);
    exclusions->footer("Example:\n  snipwren exclusions add org.example.vault --reason \"my passwords\"");
    exclusions->add_subcommand("list", "Show them")->callback([&context] { listExclusions(context); });
    CLI::App* add = exclusions->add_subcommand("add", "Keep out of one more");
    add->add_option("ID", *id, "Its identifier: desktop-file id, window class, executable or Flatpak id")->required();
    add->add_option("--reason", *reason, "Why, for the list");
    add->callback([&context, id, reason] { addExclusion(context, *id, *reason); });
    CLI::App* remove = exclusions->add_subcommand("remove", "Work in it again");
    remove->add_option("ID", *id, "Its identifier as the list shows it")->required();
    remove->callback([&context, id] { removeExclusion(context, *id); });
}
} // namespace snipwren
