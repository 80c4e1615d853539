#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "base/NotificationCenter.h"
#include "base/Result.h"

namespace snipwren {
class JsonRpcHandler;
class KeychainHelper;
class Log;
class MCPHubManager;
class Random;

/// The context server: listens on the loopback address only, lets in whoever presents the token in a first header line,
/// and then exchanges JSON-RPC messages, one JSON object per line. The listener, the connections and their callbacks
/// live on the server's own queue; requests are handled outside it, so a slow one holds up nobody. start and stop may be
/// called on any thread, never on the server's own.
class MCPServer {
public:
    static constexpr unsigned short defaultPort = 9987;
    static constexpr const char* queueLabel = "com.snipwren.mcpServerQueue";
    /// Its "object" is the text "true" to start the server, any other text to stop it.
    static constexpr const char* toggleNotification = "com.snipwren.mcp.toggle";
    static constexpr const char* tokenKey = "mcp_token";
    /// The setting that starts the server with the program.
    static constexpr const char* enabledKey = "isMCPServerEnabled";

    struct Options {
        /// 0 takes any free port.
        unsigned short port = defaultPort;
        std::chrono::milliseconds authenticationTime = std::chrono::seconds(10);
        std::size_t maxConnections = 256;
        /// Of replies that a client does not read.
        std::size_t maxUnsent = std::size_t{64} << 20;
    };
    struct Dependencies {
        JsonRpcHandler& handler;
        MCPHubManager& hub;
        KeychainHelper& secrets;
        Random& random;
        NotificationCenter& notifications;
        Log& log;
    };

    explicit MCPServer(const Dependencies& dependencies) : MCPServer(dependencies, Options()) {}
    MCPServer(const Dependencies& dependencies, const Options& options);
    MCPServer(const MCPServer&) = delete;
    MCPServer& operator=(const MCPServer&) = delete;
    ~MCPServer();

    /// Listens; when it already does, the old listener and its connections end first. The error has been logged.
    Result<void, std::string> start();
    /// The port is free when this returns; the connections end soon after.
    void stop();
    /// Stops and waits until nothing of the server runs any more.
    void shutDown();
    bool isListening() const;
    /// The port in use; 0 while stopped.
    unsigned short port() const;
    void handleToggleNotification(const UserInfo& info);

    /// The token that clients must present; made and saved at the first call.
    static std::string getOrCreateMCPToken(KeychainHelper& secrets, Random& random);
    /// Takes the same time wherever the first difference is.
    static bool constantTimeEquals(std::string_view a, std::string_view b);

private:
    class Session;
    const Dependencies dependencies_;
    const Options options_;
    mutable std::mutex mutex_;
    std::unique_ptr<Session> session_;
    NotificationCenter::Subscription toggle_;
};
} // namespace snipwren
