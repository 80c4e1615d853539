#include "context/mcp/McpBridge.h"

#include <vector>

#include <nlohmann/json.hpp>

#include "context/mcp/McpTools.h"
#include "context/server/JsonRpc.h"

namespace snipwren {
namespace {
constexpr std::string_view versionKey = "io.modelcontextprotocol/protocolVersion";
constexpr std::string_view capabilitiesKey = "io.modelcontextprotocol/clientCapabilities";
constexpr std::string_view subscriptionKey = "io.modelcontextprotocol/subscriptionId";
constexpr std::string_view handshakeRevisions[] = {"2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"};
constexpr int unsupportedVersion = -32022;
constexpr int resourceNotFound = -32002;
constexpr int internalError = -32603;
/// The lists change only with the program itself.
constexpr int listMilliseconds = 3600000;
constexpr std::string_view serverInfo = R"({"name":"snipwren","title":"Snipwren","version":")" SNIPWREN_VERSION R"("})";
constexpr std::string_view instructions =
    "Snipwren is the user's capture utility. Ask what the user is doing with snipwren_query_context, tell it what you "
    "work "
    "on with snipwren_push_context, keep knowledge with snipwren_push_memory, snipwren_push_node and "
    "snipwren_push_edge, "
    "and capture notes, reminders, timers and the like with snipwren_capture only when the user wants that.";

constexpr std::string_view capabilities =
    R"({"tools":{"listChanged":false},"resources":{"subscribe":true,"listChanged":false}})";

const nlohmann::json* memberOf(const nlohmann::json& object, std::string_view key) {
    if (!object.is_object()) return nullptr;
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> textOf(const nlohmann::json& object, std::string_view key) {
    const auto* const member = memberOf(object, key);
    if (!member || !member->is_string()) return std::nullopt;
    return member->get<std::string>();
}

} // namespace

/// Collects the answers to the messages that came as one list.
struct McpBridge::Batch {
    std::size_t owed = 0;
    std::string replies;
};

McpBridge::McpBridge(Connections connections) : connections_(std::move(connections)) {}
McpBridge::~McpBridge() = default;

void McpBridge::fromClient(std::string_view line) {
    // The check bounds the depth, which the parser's tree would follow recursively.
    const Json message = JsonRpc::isValid(line) ? Json::parse(line, nullptr, false) : Json(Json::value_t::discarded);
    const Asked nobody;
    if (message.is_discarded()) return refuse(nobody, jsonRpcCode::parseError, "Parse error");
    if (message.is_array()) return handleBatch(message);
    handleMessage(message, nullptr);
}

void McpBridge::handleBatch(const Json& batch) {
    const auto collected = std::make_shared<Batch>();
    // Whatever is answered at once must not close the batch before all of it was seen.
    collected->owed = 1;
    for (const auto& message : batch) handleMessage(message, collected);
    if (batch.empty()) return refuse(Asked(), jsonRpcCode::invalidRequest, "Invalid Request");
    if (--collected->owed == 0 && !collected->replies.empty()) connections_.toClient('[' + collected->replies + ']');
}

void McpBridge::handleMessage(const Json& message, const std::shared_ptr<Batch>& batch) {
    const auto* const id = memberOf(message, "id");
    const auto method = textOf(message, "method");
    if (!method && id && (memberOf(message, "result") || memberOf(message, "error"))) return; // We ask clients nothing.
    Asked asked;
    asked.batch = batch;
    const bool usableId = id && (id->is_string() || id->is_number());
    if (usableId) asked.id = id->dump();
    if (batch && (id || !method)) ++batch->owed;
    if (!method || (id && !usableId)) return refuse(asked, jsonRpcCode::invalidRequest, "Invalid Request");
    const auto* const given = memberOf(message, "params");
    const Json params = given ? *given : Json::object();
    if (!id) return handleNotification(*method, params);
    if (!params.is_object()) return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: an object is required");
    if (readEnvelope(asked, *method, params)) handleRequest(asked, *method, params);
}

bool McpBridge::readEnvelope(Asked& asked, const std::string& method, const Json& params) {
    const auto* const meta = memberOf(params, "_meta");
    const auto* const version = meta ? memberOf(*meta, versionKey) : nullptr;
    if (!version) {
        if (method != "server/discover" && method != "subscriptions/listen") return true;
        refuse(asked, jsonRpcCode::invalidParams,
               "Invalid params: _meta needs " + std::string(versionKey) + " and " + std::string(capabilitiesKey));
        return false;
    }
    if (!version->is_string()) {
        refuse(asked, jsonRpcCode::invalidParams, "Invalid params: " + std::string(versionKey) + " must be a string");
        return false;
    }
    if (*version != statelessRevision) {
        if (method == "initialize") return true; // The handshake names its own revision.
        refuse(asked, unsupportedVersion, "Unsupported protocol version: " + version->get<std::string>(),
               R"({"supported":[")" + std::string(statelessRevision) + R"("],"requested":)" + version->dump() + "}");
        return false;
    }
    const auto* const declared = memberOf(*meta, capabilitiesKey);
    if (!declared || !declared->is_object()) {
        refuse(asked, jsonRpcCode::invalidParams,
               "Invalid params: _meta needs " + std::string(capabilitiesKey) + " as an object");
        return false;
    }
    asked.stateless = true;
    return true;
}

void McpBridge::handleRequest(const Asked& asked, const std::string& method, const Json& params) {
    const bool isList = method == "tools/list" || method == "resources/list" || method == "resources/templates/list";
    if (isList && memberOf(params, "cursor"))
        return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: unknown cursor");
    if (method == "tools/list") return succeed(asked, "\"tools\":" + McpTools::listJson(), listMilliseconds);
    if (method == "tools/call") return callTool(asked, params);
    if (method == "resources/list")
        return succeed(
            asked,
            R"("resources":[{"uri":")" + std::string(contextUri)
                + R"(","name":"context","title":"What the user is doing","description":"The stored working context and the live focus, as snipwren_query_context answers them. Subscribe to be told when the working context changes.","mimeType":"application/json"}])",
            listMilliseconds);
    if (method == "resources/templates/list") return succeed(asked, R"("resourceTemplates":[])", listMilliseconds);
    if (method == "resources/read") return readResource(asked, params);
    if (asked.stateless) {
        if (method == "server/discover") return discover(asked);
        if (method == "subscriptions/listen") return listen(asked, params);
    } else {
        if (method == "initialize") return initialize(asked, params);
        if (method == "ping") return succeed(asked, {});
        if (method == "resources/subscribe") return subscribe(asked, params, true);
        if (method == "resources/unsubscribe") return subscribe(asked, params, false);
    }
    refuse(asked, jsonRpcCode::methodNotFound, "Method not found: " + method);
}

void McpBridge::handleNotification(const std::string& method, const Json& params) {
    if (method != "notifications/cancelled") return;
    const auto* const id = memberOf(params, "requestId");
    if (!id) return;
    const std::string cancelled = id->dump();
    streams_.erase(cancelled);
    for (auto it = pending_.begin(); it != pending_.end(); ++it) {
        // What was begun goes on; only its answer is no longer wanted. In a list it is owed all the same.
        if (it->second.asked.id != cancelled || it->second.asked.batch || it->second.wanted == Wanted::subscription)
            continue;
        pending_.erase(it);
        return;
    }
}

void McpBridge::initialize(const Asked& asked, const Json& params) {
    const auto wanted = textOf(params, "protocolVersion");
    if (!wanted) return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: 'protocolVersion' string required");
    std::string_view revision = latestHandshakeRevision;
    for (const auto known : handshakeRevisions)
        if (known == *wanted) revision = known;
    succeed(asked, R"("protocolVersion":")" + std::string(revision) + R"(","capabilities":)" + std::string(capabilities)
                       + R"(,"serverInfo":)" + std::string(serverInfo) + R"(,"instructions":)"
                       + JsonRpc::quoted(instructions));
}

void McpBridge::discover(const Asked& asked) {
    succeed(asked,
            R"("supportedVersions":[")" + std::string(statelessRevision) + R"("],"capabilities":)"
                + std::string(capabilities) + R"(,"instructions":)" + JsonRpc::quoted(instructions),
            listMilliseconds);
}

void McpBridge::callTool(const Asked& asked, const Json& params) {
    const auto name = textOf(params, "name");
    const McpTool* const tool = name ? McpTools::find(*name) : nullptr;
    if (!tool) return refuse(asked, jsonRpcCode::invalidParams, "Unknown tool: " + name.value_or(std::string()));
    const auto* const given = memberOf(params, "arguments");
    const Json arguments = given && !given->is_null() ? *given : Json::object();
    if (!arguments.is_object())
        return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: 'arguments' must be an object");
    if (tool->method.empty()) return callCapture(asked, arguments);
    askServer(asked, Wanted::toolResult, tool->method, arguments.dump());
}

void McpBridge::callCapture(const Asked& asked, const Json& arguments) {
    const auto target = textOf(arguments, "target");
    const auto text = textOf(arguments, "text");
    if (!target || !text) return toolText(asked, "Invalid params: 'target' and 'text' strings required", true);
    const std::int64_t number = ++lastNumber_;
    pending_.emplace(number, Pending{asked, Wanted::captureResult});
    connections_.capture(number, {*target, *text});
}

void McpBridge::captured(std::int64_t number, const CaptureOutcome& outcome) {
    const auto found = pending_.find(number);
    if (found == pending_.end()) return;
    const Asked asked = found->second.asked;
    pending_.erase(found);
    toolText(asked, outcome.text, !outcome.succeeded);
}

void McpBridge::readResource(const Asked& asked, const Json& params) {
    const auto uri = textOf(params, "uri");
    if (!uri) return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: 'uri' string required");
    if (*uri != contextUri)
        return refuse(asked, asked.stateless ? jsonRpcCode::invalidParams : resourceNotFound,
                      "Resource not found: " + *uri, "{\"uri\":" + JsonRpc::quoted(*uri) + "}");
    askServer(asked, Wanted::resource, "snipwren.queryContext", "{}");
}

void McpBridge::subscribe(const Asked& asked, const Json& params, bool on) {
    const auto uri = textOf(params, "uri");
    if (!uri || *uri != contextUri)
        return refuse(asked, resourceNotFound, "Resource not found: " + uri.value_or(std::string()));
    handshakeSubscribed_ = on;
    succeed(asked, {});
    retrySubscription();
}

void McpBridge::listen(const Asked& asked, const Json& params) {
    const auto* const filter = memberOf(params, "notifications");
    if (!filter || !filter->is_object())
        return refuse(asked, jsonRpcCode::invalidParams, "Invalid params: 'notifications' object required");
    bool wantsContext = false;
    if (const auto* const uris = memberOf(*filter, "resourceSubscriptions"); uris && uris->is_array())
        for (const auto& uri : *uris) wantsContext = wantsContext || uri == contextUri;
    const std::string honoured =
        wantsContext ? R"({"resourceSubscriptions":[")" + std::string(contextUri) + "\"]}" : "{}";
    connections_.toClient(JsonRpc::notification("notifications/subscriptions/acknowledged",
                                                "{\"_meta\":{" + JsonRpc::quoted(subscriptionKey) + ":" + asked.id
                                                    + "},\"notifications\":" + honoured + "}"));
    if (!wantsContext) return; // The stream stays open and silent: our lists never change.
    streams_.insert(asked.id);
    retrySubscription();
}

void McpBridge::retrySubscription() {
    if (!lacksSubscription()) return;
    subscribing_ = ++lastNumber_;
    const auto sent = connections_.toServer(R"({"jsonrpc":"2.0","id":)" + std::to_string(subscribing_)
                                            + R"(,"method":"snipwren.subscribe","params":{}})");
    if (!sent) subscribing_ = 0; // Not running yet; the next try comes soon.
}

void McpBridge::contextChanged() {
    const std::string uri = "\"uri\":\"" + std::string(contextUri) + "\"";
    if (handshakeSubscribed_)
        connections_.toClient(JsonRpc::notification("notifications/resources/updated", "{" + uri + "}"));
    for (const auto& id : streams_)
        connections_.toClient(
            JsonRpc::notification("notifications/resources/updated",
                                  "{\"_meta\":{" + JsonRpc::quoted(subscriptionKey) + ":" + id + "}," + uri + "}"));
}

void McpBridge::clientFinished() {
    handshakeSubscribed_ = false;
    for (const auto& id : streams_)
        connections_.toClient(JsonRpc::result(id, R"({"resultType":"complete","_meta":{)"
                                                      + JsonRpc::quoted(subscriptionKey) + ":" + id + "}}"));
    streams_.clear();
}

void McpBridge::askServer(const Asked& asked, Wanted wanted, std::string_view method, std::string_view params) {
    const std::int64_t number = ++lastNumber_;
    std::string line = R"({"jsonrpc":"2.0","id":)" + std::to_string(number) + R"(,"method":")";
    line.append(method).append(R"(","params":)").append(params).append("}");
    // Entered first: a connection that breaks while sending fails everything that is open.
    pending_.emplace(number, Pending{asked, wanted});
    const auto sent = connections_.toServer(line);
    if (sent) return retrySubscription(); // The program may just have come back.
    const auto open = pending_.find(number);
    if (open == pending_.end()) return;
    pending_.erase(open);
    fail({asked, wanted}, sent.error());
}

void McpBridge::fromServer(std::string_view line) {
    const Json message = JsonRpc::isValid(line) ? Json::parse(line, nullptr, false) : Json(Json::value_t::discarded);
    if (!message.is_object()) return;
    if (textOf(message, "method") == "snipwren.contextChanged") return contextChanged();
    const auto* const id = memberOf(message, "id");
    if (!id || !id->is_number_integer()) return;
    const auto number = id->get<std::int64_t>();
    if (number == subscribing_) {
        subscribing_ = 0;
        subscribedAtServer_ = memberOf(message, "result") != nullptr;
        return;
    }
    const auto found = pending_.find(number);
    if (found == pending_.end()) return;
    const Pending pending = found->second;
    pending_.erase(found);
    finish(pending, message);
}

void McpBridge::finish(const Pending& pending, const Json& response) {
    const auto* const result = memberOf(response, "result");
    if (!result) {
        const auto* const error = memberOf(response, "error");
        return fail(pending, error ? textOf(*error, "message").value_or(std::string()) : std::string());
    }
    const std::string text = result->is_string() ? result->get<std::string>() : result->dump();
    if (pending.wanted == Wanted::resource)
        return succeed(pending.asked,
                       R"("contents":[{"uri":")" + std::string(contextUri)
                           + R"(","mimeType":"application/json","text":)" + JsonRpc::quoted(text) + "}]",
                       0);
    toolText(pending.asked, text, false, result->is_object() ? text : std::string());
}

void McpBridge::fail(const Pending& pending, const std::string& sentence) {
    if (pending.wanted == Wanted::resource) return refuse(pending.asked, internalError, sentence);
    toolText(pending.asked, sentence, true);
}

void McpBridge::serverLost(const std::string& sentence) {
    // One that had been answered may have missed changes meanwhile, so subscribers look again.
    if (std::exchange(subscribedAtServer_, false)) contextChanged();
    subscribing_ = 0;
    std::map<std::int64_t, Pending> lost;
    for (auto it = pending_.begin(); it != pending_.end();) {
        const auto here = it++;
        if (here->second.wanted != Wanted::captureResult) lost.insert(pending_.extract(here));
    }
    for (const auto& [number, pending] : lost) fail(pending, sentence);
}

void McpBridge::succeed(const Asked& asked, const std::string& members, std::optional<int> cacheMilliseconds) {
    std::string result = "{" + members;
    if (asked.stateless) {
        if (!members.empty()) result += ',';
        result +=
            R"("resultType":"complete","_meta":{"io.modelcontextprotocol/serverInfo":)" + std::string(serverInfo) + "}";
        if (cacheMilliseconds)
            result += ",\"ttlMs\":" + std::to_string(*cacheMilliseconds) + R"(,"cacheScope":"private")";
    }
    reply(asked, JsonRpc::result(asked.id, result + "}"));
}

void McpBridge::toolText(const Asked& asked, const std::string& text, bool isError, const std::string& structured) {
    std::string members = R"("content":[{"type":"text","text":)" + JsonRpc::quoted(text) + "}]";
    if (!structured.empty()) members += ",\"structuredContent\":" + structured;
    if (isError) members += ",\"isError\":true";
    succeed(asked, members);
}

void McpBridge::refuse(const Asked& asked, int code, const std::string& sentence, const std::string& data) {
    std::string line = JsonRpc::error(asked.id, code, sentence);
    if (!data.empty()) line.insert(line.size() - 2, ",\"data\":" + data);
    reply(asked, std::move(line));
}

void McpBridge::reply(const Asked& asked, std::string line) {
    if (!asked.batch) return connections_.toClient(line);
    Batch& batch = *asked.batch;
    if (!batch.replies.empty()) batch.replies += ',';
    batch.replies += line;
    if (--batch.owed == 0) connections_.toClient('[' + batch.replies + ']');
}
} // namespace snipwren
