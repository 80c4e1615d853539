// `snipwren completion`: a script for the user's shell, made from the command line's own tree.
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "cli/Command.h"

namespace snipwren {
namespace {
std::string subcommandNames(const CLI::App& app) {
    std::string names;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        names += (names.empty() ? "" : " ") + sub->get_name();
    return names;
}

std::string bashScript(const CLI::App& app) {
    std::string script = "_snipwren() {\n    local word=\"${COMP_WORDS[COMP_CWORD]}\" choices=\"\"\n"
                         "    if [ \"$COMP_CWORD\" = 1 ]; then\n        choices=\""
                         + subcommandNames(app) + "\"\n    else\n        case \"${COMP_WORDS[1]}\" in\n";
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        const std::string names = subcommandNames(*sub);
        if (!names.empty()) script += "        " + sub->get_name() + ") choices=\"" + names + "\" ;;\n";
    }
    script += "        capture) choices=\"$(snipwren targets | sed -n 's|^//\\([a-z]*\\).*|\\1|p')\" ;;\n"
              "        esac\n    fi\n    COMPREPLY=($(compgen -W \"$choices\" -- \"$word\"))\n}\n"
              "complete -o default -F _snipwren snipwren\n";
    return script;
}

std::string fishScript(const CLI::App& app) {
    std::string script = "complete -c snipwren -f\n";
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        script += "complete -c snipwren -n __fish_use_subcommand -a " + sub->get_name() + " -d '"
                  + sub->get_description() + "'\n";
        if (const std::string names = subcommandNames(*sub); !names.empty())
            script +=
                "complete -c snipwren -n '__fish_seen_subcommand_from " + sub->get_name() + "' -a '" + names + "'\n";
    }
    return script;
}
} // namespace

void addCompletionCommand(CLI::App& app, CommandContext& context) {
    const auto shell = std::make_shared<std::string>("bash");
    CLI::App* completion = app.add_subcommand("completion", "Print a completion script for your shell");
    completion->add_option("SHELL", *shell, "bash, zsh or fish")->check(CLI::IsMember({"bash", "zsh", "fish"}));
    completion->footer("Example:\n  snipwren completion bash > ~/.local/share/bash-completion/completions/snipwren");
    completion->callback([&app, &context, shell] {
        if (*shell == "zsh") context.out << "autoload -U +X bashcompinit && bashcompinit\n";
        context.out << (*shell == "fish" ? fishScript(app) : bashScript(app));
    });
}
} // namespace snipwren
