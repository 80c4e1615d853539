#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/ThreadQueue.h"
#include "context/mcp/McpBridge.h"
#include "context/server/ContextClient.h"
#include "context/server/LineBuffer.h"

namespace snipwren {
/// Runs an McpBridge between two file descriptors and the context server: one thread waits for all of them. Captures run
/// one after another on a thread of their own, which starts with the first.
class StdioBridge {
public:
    using Connect = std::function<Result<ContextClient, ContextClientError>()>;
    using Capture = std::function<McpBridge::CaptureOutcome(const McpBridge::CaptureRequest&)>;

    StdioBridge(int in, int out, Connect connect, Capture capture);
    ~StdioBridge();
    /// Until the client closes its side and has its answers.
    void run();

private:
    Result<void, std::string> sendToServer(const std::string& line);
    void startCapture(std::int64_t number, McpBridge::CaptureRequest request);
    void takeFromClient();
    void takeFromServer();
    void takeOutcomes();
    void dropServer(ContextClientError error);
    void write(const std::string& line);

    const int in_;
    const int out_;
    const Connect connect_;
    const Capture capture_;
    int wake_[2] = {-1, -1};
    LineBuffer lines_;
    std::optional<ContextClient> server_;
    bool clientOpen_ = true;
    bool outputOpen_ = true;
    std::mutex mutex_;
    std::vector<std::pair<std::int64_t, McpBridge::CaptureOutcome>> outcomes_;
    McpBridge bridge_;
    std::optional<ThreadQueue> captures_;
};
} // namespace snipwren
