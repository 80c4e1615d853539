#include <iostream>
#include <iterator>

#include <CLI/CLI.hpp>
#include <termios.h>
#include <unistd.h>

#include "app/LocalStore.h"
#include "cli/Command.h"
#include "cli/Printable.h"

namespace snipwren {
namespace {
/// The terminal shows nothing of what is typed while this lives.
class HiddenInput {
public:
    HiddenInput() : isTerminal_(::isatty(STDIN_FILENO) == 1 && ::tcgetattr(STDIN_FILENO, &before_) == 0) {
        if (!isTerminal_) return;
        termios hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        isTerminal_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
    }
    HiddenInput(const HiddenInput&) = delete;
    ~HiddenInput() {
        if (isTerminal_) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    bool isTerminal() const { return isTerminal_; }

private:
    termios before_{};
    bool isTerminal_;
};

std::string secretFrom(CommandContext& context, const std::string& key) {
    std::string value;
    if (&context.in == &std::cin) {
        if (const HiddenInput hidden; hidden.isTerminal()) {
            context.err << "Value of " << printable(key) << " (not shown): " << std::flush;
            std::getline(context.in, value);
            context.err << "\n";
            return value;
        }
    }
    value.assign(std::istreambuf_iterator<char>(context.in), std::istreambuf_iterator<char>());
    // The line feed of "echo" and of a text file is not part of the secret.
    if (!value.empty() && value.back() == '\n') value.pop_back();
    if (!value.empty() && value.back() == '\r') value.pop_back();
    return value;
}
} // namespace

void addSecretsCommand(CLI::App& app, CommandContext& context) {
    const auto service = std::make_shared<std::string>();
    const auto key = std::make_shared<std::string>();
    CLI::App* secrets = app.add_subcommand("secrets", "Keep tokens and keys in owner-only files");
    secrets->require_subcommand(1);
    secrets->footer("The value is read from standard input or asked for; it is never shown.\n"
                    "Example:\n  snipwren secrets set SnipwrenAI slackToken < token.txt");
    const auto addCommand = [&](const char* name, const char* description, auto act) {
        CLI::App* command = secrets->add_subcommand(name, description);
        command->add_option("SERVICE", *service, "For example SnipwrenAI or com.snipwren.app")->required();
        command->add_option("KEY", *key, "For example slackToken, openai or anthropic")->required();
        command->callback([&context, service, key, act] {
            LocalStore store(context.environment);
            act(context, store.secrets(), *service, *key);
        });
    };
    using Act = void (*)(CommandContext&, KeychainHelper&, const std::string&, const std::string&);
    const Act set = [](CommandContext& to, KeychainHelper& keychain, const std::string& owner,
                       const std::string& name) {
        const std::string value = secretFrom(to, name);
        if (value.empty()) return to.fail("The value is empty; nothing was saved.");
        if (keychain.save(owner, name, value) != KeychainHelper::success)
            return to.fail("The secret could not be saved. The reason stands in \"" + to.environment.paths().logFile
                           + "\".");
        to.out << "Saved.\n";
    };
    const Act has = [](CommandContext& to, KeychainHelper& keychain, const std::string& owner,
                       const std::string& name) {
        const bool found = keychain.load(owner, name).has_value();
        to.out << (found ? "yes\n" : "no\n");
        if (!found) to.status = 1;
    };
    const Act remove = [](CommandContext& to, KeychainHelper& keychain, const std::string& owner,
                          const std::string& name) {
        if (!keychain.remove(owner, name)) return to.fail("The secret could not be deleted.");
        to.out << "Deleted.\n";
    };
    addCommand("set", "Save a value", set);
    addCommand("has", "Say whether there is a value; the status is 1 if not", has);
    addCommand("delete", "Delete the value", remove);
}
} // namespace snipwren
