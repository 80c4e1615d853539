#include "context/server/MCPRequestHandler.h"

#include <nlohmann/json.hpp>

#include "context/server/FocusedContext.h"
#include "context/server/JsonRpc.h"
#include "context/server/MCPHubManager.h"
#include "context/server/RequestParams.h"

namespace snipwren {
namespace {
void appendMember(std::string& out, std::string_view key, std::string_view text) {
    if (!out.empty()) out += ',';
    JsonRpc::appendQuoted(out, key);
    out += ':';
    JsonRpc::appendQuoted(out, text);
}
} // namespace

std::string MCPRequestHandler::handleRequest(std::string_view method, std::string_view params, std::string_view id,
                                             const std::optional<std::string>& connectionId, std::stop_token stop) {
    const Answer answered = answer(method, params, connectionId, stop);
    if (answered) return JsonRpc::result(id, *answered);
    return JsonRpc::error(id, answered.error().code, answered.error().message);
}

MCPRequestHandler::Answer MCPRequestHandler::answer(std::string_view method, std::string_view params,
                                                    const std::optional<std::string>& connectionId,
                                                    const std::stop_token& stop) {
    if (method == "snipwren.queryContext" && params == "{}") return queryContext(false);
    using Method = Answer (MCPRequestHandler::*)(const Call&);
    static constexpr std::pair<std::string_view, Method> methods[] = {
        {"snipwren.pushContext", &MCPRequestHandler::pushContext},
        {"snipwren.pushSuggestions", &MCPRequestHandler::pushSuggestions},
        {"snipwren.pushMemory", &MCPRequestHandler::pushMemory},
        {"snipwren.queryContext", nullptr},
        {"snipwren.clearSuggestions", &MCPRequestHandler::clearSuggestions},
        {"snipwren.triggerAI", &MCPRequestHandler::triggerAI},
        {"snipwren.subscribe", &MCPRequestHandler::subscribe},
        {"snipwren.queryGraph", &MCPRequestHandler::queryGraph},
        {"snipwren.pushNode", &MCPRequestHandler::pushNode},
        {"snipwren.pushEdge", &MCPRequestHandler::pushEdge}};
    for (const auto& [name, function] : methods) {
        if (name != method) continue;
        const auto parsed = nlohmann::json::parse(params, nullptr, false);
        if (!parsed.is_object()) // Only a number beyond all bounds passes the transport and stops the parser.
            return unexpected(Failure{jsonRpcCode::invalidParams, "Invalid params: a number is out of range"});
        if (function) return (this->*function)({parsed, connectionId, stop});
        const auto include = parsed.find("includeText");
        if (include != parsed.end() && !include->is_boolean())
            return unexpected(
                Failure{jsonRpcCode::invalidParams, "Invalid params: 'includeText' must be true or false"});
        return queryContext(include != parsed.end() && include->get<bool>());
    }
    return unexpected(Failure{jsonRpcCode::methodNotFound, "Method not found: " + std::string(method)});
}

MCPRequestHandler::Answer MCPRequestHandler::pushContext(const Call& call) {
    DatabaseManager::McpContext context;
    const std::pair<const char*, std::optional<std::string>*> fields[] = {{"project", &context.project},
                                                                          {"topic", &context.topic},
                                                                          {"relatedNotes", &context.relatedNotes},
                                                                          {"activeDecision", &context.activeDecision},
                                                                          {"metadata", &context.metadata}};
    for (const auto& [key, field] : fields)
        if (!readTextOrJson(call.params, key, *field))
            return unexpected(Failure{jsonRpcCode::invalidParams, std::string("Invalid params: '") + key
                                                                      + "' must be a text, a list or an object"});
    const std::lock_guard lock(
        contextMutex_); // Held over the write, so that memory and database agree on the last one.
    if (!use_.database.updateMCPContext(context))
        return unexpected(Failure{jsonRpcCode::failed, "Failed to store the context"});
    auto stored = std::make_shared<StoredContext>();
    stored->wasPushed = true;
    for (const auto& [key, field] : fields) appendMember(stored->members, key, field->value_or(std::string()));
    use_.hub.broadcastContextChanged('{' + stored->members + '}');
    context_ = std::move(stored);
    return JsonRpc::quoted("Context pushed successfully.");
}

std::shared_ptr<const MCPRequestHandler::StoredContext> MCPRequestHandler::storedContext() {
    const std::lock_guard lock(contextMutex_);
    if (!context_) {
        auto stored = std::make_shared<StoredContext>();
        const auto row = use_.database.fetchMCPContext();
        stored->wasPushed = row.has_value();
        static constexpr std::pair<const char*, const char*> columns[] = {{"project", "project"},
                                                                          {"topic", "topic"},
                                                                          {"relatedNotes", "related_notes"},
                                                                          {"activeDecision", "active_decision"},
                                                                          {"metadata", "metadata"}};
        for (const auto& [key, column] : columns) {
            const auto cell = row ? row->find(column) : DatabaseManager::Row::const_iterator();
            appendMember(stored->members, key, row && cell != row->end() ? cell->second : std::string());
        }
        context_ = std::move(stored);
    }
    return context_;
}

MCPRequestHandler::Answer MCPRequestHandler::queryContext(bool includeText) {
    const auto stored = storedContext();
    const FocusSnapshot focus = use_.focus.read(includeText);
    std::string out;
    out.reserve(2 * stored->members.size() + 256);
    out = stored->members;
    appendMember(out, "activeApplication", focus.activeApplication);
    appendMember(out, "focusedContext", focus.focusedContext);
    appendMember(out, "focusedLabel", focus.focusedLabel);
    appendMember(out, "windowTitle", focus.windowTitle);
    out += stored->wasPushed ? ",\"pushedContext\":{" + stored->members + "}" : ",\"pushedContext\":null";
    if (focus.text) appendMember(out, "text", *focus.text);
    return '{' + out + '}';
}

MCPRequestHandler::Answer MCPRequestHandler::subscribe(const Call& call) {
    if (!call.connectionId || !use_.hub.subscribe(*call.connectionId))
        return unexpected(Failure{jsonRpcCode::failed, "Connection ID context missing for subscription"});
    return JsonRpc::quoted("Subscribed to context broadcasts successfully.");
}
} // namespace snipwren
