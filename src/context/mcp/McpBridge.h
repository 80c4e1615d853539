#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "base/Result.h"

namespace snipwren {
struct McpTool;

/// The Model Context Protocol on one side, the context server's methods on the other: what `snipwren mcp` says. Speaks the
/// revisions with an initialize handshake and the stateless one in the same process; each request tells which it means.
/// Lines in, lines out, no waiting: answers of the context server come back through fromServer. Not thread safe.
class McpBridge {
public:
    static constexpr std::string_view statelessRevision = "2026-07-28";
    static constexpr std::string_view latestHandshakeRevision = "2025-11-25";
    static constexpr std::string_view contextUri = "snipwren://context";

    struct CaptureOutcome {
        bool succeeded = false;
        /// What to tell: the receipt, or the sentence of the failure.
        std::string text;
    };
    struct CaptureRequest {
        std::string target;
        std::string text;
    };
    /// All of them are called on the bridge's thread.
    struct Connections {
        /// One line to the client, without its line feed.
        std::function<void(const std::string& line)> toClient;
        /// One request line to the context server, connecting first when necessary. The error is the sentence to tell.
        std::function<Result<void, std::string>(const std::string& line)> toServer;
        /// Starts the capture; the outcome comes back through `captured` with the same number.
        std::function<void(std::int64_t number, CaptureRequest request)> capture;
    };
    explicit McpBridge(Connections connections);
    ~McpBridge();

    void fromClient(std::string_view line);
    void fromServer(std::string_view line);
    /// The connection to the server is gone: its open requests fail with this sentence.
    void serverLost(const std::string& sentence);
    void captured(std::int64_t number, const CaptureOutcome& outcome);
    /// Tries again to reach the server for the sake of subscriptions. To be called every few seconds.
    void retrySubscription();
    bool wantsSubscription() const { return handshakeSubscribed_ || !streams_.empty(); }
    /// True while subscribers wait for the server to be reached.
    bool lacksSubscription() const { return wantsSubscription() && !subscribedAtServer_ && subscribing_ == 0; }
    /// The client sends nothing more; its subscriptions end in order.
    void clientFinished();
    /// True while answers are owed.
    bool isBusy() const { return !pending_.empty(); }

private:
    using Json = nlohmann::json;
    struct Batch;
    /// A request of the client as far as answering it goes.
    struct Asked {
        std::string id = "null"; // JSON text.
        bool stateless = false;
        std::shared_ptr<Batch> batch;
    };
    enum class Wanted { toolResult, resource, captureResult, subscription };
    struct Pending {
        Asked asked;
        Wanted wanted;
    };

    void handleMessage(const Json& message, const std::shared_ptr<Batch>& batch);
    void handleBatch(const Json& batch);
    void handleRequest(const Asked& asked, const std::string& method, const Json& params);
    void handleNotification(const std::string& method, const Json& params);
    /// True when the request's envelope is in order; otherwise it has been answered.
    bool readEnvelope(Asked& asked, const std::string& method, const Json& params);
    void initialize(const Asked& asked, const Json& params);
    void discover(const Asked& asked);
    void callTool(const Asked& asked, const Json& params);
    void callCapture(const Asked& asked, const Json& arguments);
    void readResource(const Asked& asked, const Json& params);
    void subscribe(const Asked& asked, const Json& params, bool on);
    void listen(const Asked& asked, const Json& params);
    void askServer(const Asked& asked, Wanted wanted, std::string_view method, std::string_view params);
    void finish(const Pending& pending, const Json& response);
    void fail(const Pending& pending, const std::string& sentence);
    void contextChanged();

    /// `members` are those of the result object, as JSON text without braces.
    void succeed(const Asked& asked, const std::string& members, std::optional<int> cacheMilliseconds = std::nullopt);
    void toolText(const Asked& asked, const std::string& text, bool isError, const std::string& structured = {});
    void refuse(const Asked& asked, int code, const std::string& sentence, const std::string& data = {});
    void reply(const Asked& asked, std::string line);

    const Connections connections_;
    std::int64_t lastNumber_ = 0;
    std::map<std::int64_t, Pending> pending_;
    bool handshakeSubscribed_ = false;
    /// Ids (JSON text) of the open subscription streams of the stateless revision.
    std::set<std::string> streams_;
    bool subscribedAtServer_ = false;
    std::int64_t subscribing_ = 0; // The number of the request under way.
};
} // namespace snipwren
