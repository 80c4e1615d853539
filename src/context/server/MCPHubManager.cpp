#include "context/server/MCPHubManager.h"

#include "base/Log.h"
#include "context/server/JsonRpc.h"

namespace snipwren {
void MCPHubManager::connectionOpened(const std::string& connectionId, Sender sender) {
    queue_.async([this, connectionId, sender = std::move(sender)] { open_[connectionId] = sender; });
}

void MCPHubManager::forget(const std::string& connectionId) {
    queue_.async([this, connectionId] {
        open_.erase(connectionId);
        subscribed_.erase(connectionId);
    });
}

bool MCPHubManager::subscribe(const std::string& connectionId) {
    return queue_.call([&] {
        if (!open_.contains(connectionId)) return false;
        subscribed_.insert(connectionId);
        return true;
    });
}

void MCPHubManager::broadcastContextChanged(const std::string& params) {
    queue_.async([this, line = JsonRpc::notification("snipwren.contextChanged", params)] {
        for (const auto& id : subscribed_)
            if (!open_.at(id)(line)) log_.line("❌ MCP Broadcast Send Error to " + id);
    });
}
} // namespace snipwren
