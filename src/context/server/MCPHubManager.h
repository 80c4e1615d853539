#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "base/SerialQueue.h"

namespace snipwren {
class Log;

/// Sends changes of the context to the connections that subscribed to them. Its state lives on its queue; the transport
/// tells it which connections are open. Thread safe.
class MCPHubManager {
public:
    static constexpr const char* queueLabel = "com.snipwren.mcpHubQueue";
    /// Hands one line (without its line feed) to the connection; false when that cannot be done any more.
    using Sender = std::function<bool(const std::string& line)>;

    MCPHubManager(SerialQueue& queue, Log& log) : queue_(queue), log_(log) {}

    void connectionOpened(const std::string& connectionId, Sender sender);
    /// The connection is closed: no more broadcasts go to it.
    void forget(const std::string& connectionId);
    /// False when no such connection is open.
    bool subscribe(const std::string& connectionId);
    /// Sends `snipwren.contextChanged` with these params (JSON text) to every subscribed connection.
    void broadcastContextChanged(const std::string& params);

private:
    SerialQueue& queue_;
    Log& log_;
    std::map<std::string, Sender> open_;
    std::set<std::string> subscribed_;
};
} // namespace snipwren
