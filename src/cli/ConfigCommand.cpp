#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "cli/Command.h"

namespace snipwren {
void addConfigCommand(CLI::App& app, CommandContext& context) {
    CLI::App* config = app.add_subcommand("config", "Read and change settings");
    config->require_subcommand(1);
    config->footer("Example:\n  snipwren config set obsidianVaultPath ~/Notes");
    const auto key = std::make_shared<std::string>();
    const auto value = std::make_shared<std::string>();

    config->add_subcommand("list", "Show every setting that is set")->callback([&context] {
        const UserDefaults& defaults = context.environment.defaults();
        for (const std::string& name : defaults.keys())
            context.out << name << " = " << defaults.json(name).value_or("") << "\n";
    });

    CLI::App* get = config->add_subcommand("get", "Show one setting");
    get->add_option("KEY", *key, "The setting's name")->required();
    get->callback([&context, key] {
        const UserDefaults& defaults = context.environment.defaults();
        if (const auto text = defaults.string(*key)) {
            context.out << *text << "\n";
        } else if (const auto json = defaults.json(*key)) {
            context.out << *json << "\n";
        } else {
            context.fail("The setting \"" + *key + "\" is not set. Try: snipwren config list");
        }
    });

    CLI::App* set = config->add_subcommand("set", "Change one setting");
    set->add_option("KEY", *key, "The setting's name")->required();
    set->add_option("VALUE", *value, "A text, true or false, a number, or a JSON list of texts")->required();
    set->callback([&context, key, value] {
        if (const auto written = context.environment.defaults().setParsed(*key, *value); !written)
            context.fail(written.error().description);
    });

    CLI::App* unset = config->add_subcommand("unset", "Go back to the default of one setting");
    unset->add_option("KEY", *key, "The setting's name")->required();
    unset->callback([&context, key] {
        if (const auto written = context.environment.defaults().remove(*key); !written)
            context.fail(written.error().description);
    });
}
} // namespace snipwren
