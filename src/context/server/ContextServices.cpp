#include "context/server/ContextServices.h"

#include "base/UserDefaults.h"

namespace snipwren {
ContextServices::ContextServices(const Dependencies& use, const MCPServer::Options& options)
    : defaults_(use.defaults),
      suggestions_(suggestionQueue_, use.clock, use.notifications),
      hub_(hubQueue_, use.log),
      graph_(use.database),
      sealer_(use.secrets, use.random, use.log),
      focus_({.field = use.field, .workspace = use.workspace, .firewall = use.firewall, .defaults = use.defaults}),
      handler_({use.database, suggestions_, hub_, graph_, sealer_, focus_, use.clock, use.random, use.assistant}),
      server_({handler_, hub_, use.secrets, use.random, use.notifications, use.log}, options) {}

ContextServices::~ContextServices() {
    server_.shutDown();
    // What the ended connections left on the queue still names the hub.
    hubQueue_.start();
    hubQueue_.sync([] {});
}

void ContextServices::prepare() {
    hubQueue_.start();
    suggestionQueue_.start();
}

void ContextServices::launch() {
    prepare();
    if (defaults_.boolean(MCPServer::enabledKey).value_or(false)) (void)server_.start(); // It has logged why it failed.
}
} // namespace snipwren
