#pragma once

#include "base/ThreadQueue.h"
#include "context/graph/KnowledgeGraph.h"
#include "context/graph/MemorySealer.h"
#include "context/server/FocusedContext.h"
#include "context/server/MCPHubManager.h"
#include "context/server/MCPRequestHandler.h"
#include "context/server/MCPServer.h"
#include "context/server/MCPSuggestionQueue.h"

namespace snipwren {
/// The context server with all that stands behind it, one of each: what a program that serves the context holds. Its
/// queues start with prepare().
class ContextServices {
public:
    struct Dependencies {
        DatabaseManager& database;
        KeychainHelper& secrets;
        PrivacyFirewall& firewall;
        const UserDefaults& defaults;
        const Clock& clock;
        Random& random;
        NotificationCenter& notifications;
        Log& log;
        /// Null where there is no desktop.
        FocusedField* field = nullptr;
        const Workspace* workspace = nullptr;
        AICompletion* assistant = nullptr;
    };
    explicit ContextServices(const Dependencies& dependencies,
                             const MCPServer::Options& options = MCPServer::Options());
    ~ContextServices();

    /// Starts the queues: the server can then be switched on, by its start() or by the toggle.
    void prepare();
    /// At the program's launch: prepares, and switches the server on when the user's settings say so.
    void launch();
    MCPServer& server() { return server_; }
    MCPSuggestionQueue& suggestions() { return suggestions_; }
    KnowledgeGraph& graph() { return graph_; }
    MemorySealer& sealer() { return sealer_; }

private:
    const UserDefaults& defaults_;
    ThreadQueue hubQueue_{MCPHubManager::queueLabel};
    ThreadQueue suggestionQueue_{MCPSuggestionQueue::queueLabel};
    MCPSuggestionQueue suggestions_;
    MCPHubManager hub_;
    KnowledgeGraph graph_;
    MemorySealer sealer_;
    FocusedContext focus_;
    MCPRequestHandler handler_;
    MCPServer server_;
};
} // namespace snipwren
