#include <csignal>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "app/AIAssistant.h"
#include "app/EngineCompletion.h"
#include "app/MachineParts.h"
#include "app/VirtualHost.h"
#include "cli/Command.h"
#include "cli/McpProgram.h"
#include "context/server/ContextClient.h"
#include "context/server/ContextServices.h"
#include "store/DatabaseManager.h"
#include "store/KeychainHelper.h"
#include "store/PrivacyFirewall.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

/// Asks the running program one thing; a failure has been told.
std::optional<Json> ask(CommandContext& context, ContextClient& client, const std::string& method) {
    const auto sent = client.send(Json({{"jsonrpc", "2.0"}, {"id", 1}, {"method", method}}).dump());
    const auto line = sent ? client.next(std::chrono::seconds(20)) : unexpected(sent.error());
    if (!line) {
        context.fail(std::string(message(line.error())));
        return std::nullopt;
    }
    const Json answer = Json::parse(*line, nullptr, false);
    if (answer.is_object() && answer.contains("result")) return answer["result"];
    context.fail("Snipwren answered with an error: " + *line);
    return std::nullopt;
}

std::optional<ContextClient> connect(CommandContext& context, McpSecrets& secrets, unsigned short port) {
    auto client = ContextClient::connect(port, secrets.helper(), *makeLoopbackListeners());
    if (client) return std::move(*client);
    context.fail(std::string(message(client.error())));
    return std::nullopt;
}

void show(CommandContext& context, unsigned short port, bool json) {
    McpSecrets secrets(context.environment);
    auto client = connect(context, secrets, port);
    const auto result = client ? ask(context, *client, "snipwren.queryContext") : std::nullopt;
    if (!result) return;
    if (json) {
        context.out << result->dump(2) << "\n";
        return;
    }
    for (const char* key : {"project", "topic", "relatedNotes", "activeDecision", "metadata", "activeApplication",
                            "windowTitle", "focusedLabel", "focusedContext"})
        if (const std::string text = result->value(key, std::string()); !text.empty())
            context.out << key << ": " << text << "\n";
}

void subscribe(CommandContext& context, unsigned short port) {
    McpSecrets secrets(context.environment);
    auto client = connect(context, secrets, port);
    if (!client || !ask(context, *client, "snipwren.subscribe")) return;
    while (true) {
        const auto line = client->next(std::chrono::hours(1));
        if (!line && line.error() == ContextClientError::timedOut) continue;
        if (!line) return context.fail(std::string(message(line.error())));
        const Json change = Json::parse(*line, nullptr, false);
        if (!change.is_object() || !change.contains("params")) continue;
        context.out << change["params"].dump() << std::endl; // Each at once: it is piped into other programs.
        if (!context.out) return;
    }
}

void serve(CommandContext& context, unsigned short port) {
    // Before any thread starts, so that all of them leave these to the one that waits for them.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    Environment& environment = context.environment;
    McpSecrets secrets(environment);
    ThreadQueue databaseQueue(DatabaseManager::queueLabel);
    ThreadQueue refreshQueue("com.snipwren.app.exclusionRefresh");
    databaseQueue.start();
    refreshQueue.start();
    DatabaseManager database({.files = environment.files(),
                              .paths = environment.paths(),
                              .clock = environment.clock(),
                              .defaults = environment.defaults(),
                              .queue = databaseQueue,
                              .log = environment.log()});
    database.open();
    PrivacyFirewall firewall({.database = database, .clock = environment.clock(), .refreshQueue = refreshQueue});
    firewall.primeExcludedApps();
    // No desktop: the assistant finds no field and no application to read from.
    VirtualHost noDesktop(environment.mainQueue(), environment.clock(), {});
    const std::unique_ptr<HttpClient> http = makeHttpClient();
    AIAssistant assistant({*http, secrets.helper(), environment.defaults(), firewall, noDesktop.desktop(),
                           noDesktop.desktop(), environment.clock()});
    assistant.start();
    EngineCompletion completion(assistant.engine());
    {
        MCPServer::Options options;
        options.port = port;
        ContextServices services({.database = database,
                                  .secrets = secrets.helper(),
                                  .firewall = firewall,
                                  .defaults = environment.defaults(),
                                  .clock = environment.clock(),
                                  .random = environment.random(),
                                  .notifications = environment.notifications(),
                                  .log = environment.log(),
                                  .assistant = &completion},
                                 options);
        services.prepare();
        if (const auto started = services.server().start(); !started) return context.fail(started.error());
        context.out << "Context server listening on 127.0.0.1:" << services.server().port()
                    << ". Press Control-C to stop." << std::endl;
        std::thread waiter([&] {
            int signal = 0;
            sigwait(&ending, &signal);
            environment.loop().quit();
        });
        environment.loop().run();
        waiter.join();
    }
    refreshQueue.sync([] {});
    databaseQueue.sync([] {});
}
} // namespace

void addContextCommands(CLI::App& app, CommandContext& context) {
    const auto port = std::make_shared<unsigned short>(MCPServer::defaultPort);
    const auto withPort = [port](CLI::App* command) {
        command->add_option("--port", *port, "The server's port, 9987 unless given");
        return command;
    };
    CLI::App* group = app.add_subcommand("context", "What AI tools see of your work");
    group->require_subcommand(1);
    const auto json = std::make_shared<bool>(false);
    CLI::App* shown = withPort(group->add_subcommand("show", "Show the context that the running program answers"));
    shown->add_flag("--json", *json, "Print one JSON object");
    shown->callback([&context, port, json] { show(context, *port, *json); });
    group->add_subcommand("token", "Show the access token that tools must present")->callback([&context] {
        McpSecrets secrets(context.environment);
        context.out << MCPServer::getOrCreateMCPToken(secrets.helper(), context.environment.random()) << "\n";
    });
    withPort(group->add_subcommand("subscribe", "Print every change of the context as a line of JSON"))
        ->callback([&context, port] { subscribe(context, *port); });
    withPort(app.add_subcommand("serve", "Run the context server without a desktop"))->callback([&context, port] {
        serve(context, *port);
    });
    CLI::App* mcp =
        withPort(app.add_subcommand("mcp", "Speak the Model Context Protocol on standard input and output"));
    mcp->footer("For the configuration of AI clients:\n  {\"mcpServers\": {\"snipwren\": {\"command\": \"snipwren\", "
                "\"args\": [\"mcp\"]}}}");
    mcp->callback([&context, port] { speakModelContextProtocol(context.environment, *port); });
}
} // namespace snipwren
