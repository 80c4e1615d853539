// `snipwren ai`: the assistant's actions on a text from the arguments or standard input, the answer as it comes.
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "ai/UserLanguage.h"
#include "app/AIAssistant.h"
#include "app/MachineParts.h"
#include "cli/Command.h"
#include "platform/FocusedField.h"
#include "platform/Workspace.h"
#include "store/DatabaseManager.h"

namespace snipwren {
namespace {
/// The command line has its text from the user's own hand and looks at no other program.
class NoField final : public FocusedField {
public:
    std::shared_ptr<FieldElement> focusedElement() override { return nullptr; }
    void setFocusObserver(FocusObserver) override {}
};

class NoWorkspace final : public Workspace {
public:
    std::shared_ptr<const RunningApplication> frontmostApplication() const override { return nullptr; }
    bool isSecureInputEnabled() const override { return false; }
    void activate(const RunningApplication&) override {}
    bool open(const std::string&) override { return false; }
    bool openSettings(const std::string&, const std::string&) override { return false; }
};

struct Assistant {
    explicit Assistant(Environment& environment)
        : secretsQueue(KeychainHelper::queueLabel),
          databaseQueue(DatabaseManager::queueLabel),
          refreshQueue("com.snipwren.app.firewallRefresh"),
          secrets({environment.files(), environment.paths(), secretsQueue, environment.log(), *keychain}),
          database({environment.files(), environment.paths(), environment.clock(), environment.defaults(),
                    databaseQueue, environment.log()}),
          firewall({database, environment.clock(), refreshQueue}),
          assistant({*http, secrets, environment.defaults(), firewall, fields, workspace, environment.clock()}) {
        secretsQueue.start();
        assistant.start();
    }
    AISuggestionEngine& engine() { return assistant.engine(); }

    // The two queues of the exclusion list are never started: there is no application to look up.
    ThreadQueue secretsQueue, databaseQueue, refreshQueue;
    const std::unique_ptr<LegacyKeychain> keychain = makeLegacyKeychain();
    NoField fields;
    NoWorkspace workspace;
    const std::unique_ptr<HttpClient> http = makeHttpClient();
    KeychainHelper secrets;
    DatabaseManager database;
    PrivacyFirewall firewall;
    AIAssistant assistant;
};

struct Options {
    std::string style = "Professional";
    std::string language;
    std::string prompt;
    std::optional<std::string> provider, model;
    std::vector<std::string> words;
};

void ask(CommandContext& context, const AIActionType& action, const std::string& text, const Options& options) {
    Assistant assistant(context.environment);
    bool endsInNewline = true;
    const auto show = [&](std::string_view piece) {
        context.out << piece << std::flush;
        if (!piece.empty()) endsInNewline = piece.back() == '\n';
    };
    const auto answer =
        assistant.engine().streamAIResponse(action, text, {}, {options.provider, options.model, {}}, show, {});
    if (!endsInNewline) context.out << "\n";
    if (!answer) return context.fail(answer.error().description);
    if (answer->isCutOff) context.err << "snipwren: The answer reached the length limit and lacks its end.\n";
}

void listProviders(CommandContext& context) {
    Assistant assistant(context.environment);
    const auto chosen = assistant.engine().getActiveProvider({}, {});
    for (AIProvider* const provider : assistant.engine().providers()) {
        const auto reason = provider->whyUnusable({});
        context.out << (chosen && *chosen == provider ? "* " : "  ") << provider->identifier() << ": "
                    << provider->displayName() << ", " << (reason ? "not usable: " + reason->description : "usable")
                    << "\n";
    }
    if (!chosen) context.fail(chosen.error().description);
}

void validate(CommandContext& context, const std::string& name) {
    Assistant assistant(context.environment);
    const auto provider = assistant.engine().getActiveProvider(name, {});
    if (!provider) return context.fail(provider.error().description);
    const auto valid = (*provider)->validateApiKey({});
    if (!valid) return context.fail(valid.error().description);
    if (!*valid) return context.fail("The service does not accept the key of " + name + ".");
    context.out << (*provider)->displayName() << " accepts requests.\n";
}
} // namespace

void addAICommand(CLI::App& app, CommandContext& context) {
    CLI::App* ai = app.add_subcommand("ai", "Rewrite, translate, explain or summarize a text");
    ai->require_subcommand(1);
    ai->footer("Example:\n  snipwren ai rewrite --style Casual \"Dear Sir or Madam\"");
    const auto options = std::make_shared<Options>();
    const auto action = [&](const char* name, const char* help) {
        CLI::App* command = ai->add_subcommand(name, help);
        command->add_option("--provider", options->provider, "ollama, anthropic or openai");
        command->add_option("--model", options->model, "Another model than the setting's");
        return command;
    };
    const auto withText = [&](CLI::App* command, const auto& make) {
        command->add_option("TEXT", options->words, "The text; - or nothing reads standard input");
        command->callback(
            [&context, options, make] { ask(context, make(*options), context.textFrom(options->words), *options); });
    };

    CLI::App* rewrite = action("rewrite", "Say it in another style");
    rewrite->add_option("--style", options->style, "The style")->capture_default_str();
    withText(rewrite, [](const Options& chosen) { return AIActionType::rewrite(chosen.style); });
    CLI::App* translate = action("translate", "Translate it");
    translate->add_option("--lang", options->language, "The language; your own when left out");
    withText(translate, [&context](const Options& chosen) {
        return AIActionType::translate(
            chosen.language.empty() ? languageName(context.environment.calendar().localeName()) : chosen.language);
    });
    withText(action("explain", "Explain it"), [](const Options&) { return AIActionType::explain(); });
    withText(action("summarize", "Sum it up"), [](const Options&) { return AIActionType::summarize(); });

    CLI::App* prompt = action("prompt", "Ask for something else");
    prompt->add_option("PROMPT", options->prompt, "What to do")->required();
    prompt->add_option("TEXT", options->words, "The text to do it with; - reads standard input");
    prompt->callback([&context, options] {
        const std::string text = options->words.empty() ? std::string() : context.textFrom(options->words);
        ask(context, AIActionType::custom(options->prompt), text, *options);
    });

    ai->add_subcommand("providers", "Show which providers can be used, and why not")->callback([&context] {
        listProviders(context);
    });
    CLI::App* check = ai->add_subcommand("validate", "Try the key of one provider");
    check->add_option("PROVIDER", options->prompt, "ollama, anthropic or openai")->required();
    check->callback([&context, options] { validate(context, options->prompt); });
}
} // namespace snipwren
