// The methods that take something in: suggestions, memories, completions and the knowledge graph.
#include <charconv>

#include <nlohmann/json.hpp>

#include "base/Clock.h"
#include "base/Random.h"
#include "context/graph/KnowledgeGraph.h"
#include "context/graph/MemorySealer.h"
#include "context/server/AICompletion.h"
#include "context/server/JsonRpc.h"
#include "context/server/MCPRequestHandler.h"
#include "context/server/MCPSuggestionQueue.h"
#include "context/server/RequestParams.h"

namespace snipwren {
using nlohmann::json;

namespace {
constexpr auto defaultLifetime = std::chrono::minutes(10);

/// What is wrong with the suggestion, or nothing. `expiresAt` is in seconds since 1970.
std::optional<std::string> readSuggestion(const json& from, MCPSuggestion& suggestion) {
    if (!from.is_object()) return "must be an object";
    const auto title = textOf(from, "title");
    const auto actionText = textOf(from, "actionText");
    if (!title || !actionText) return "needs 'title' and 'actionText' strings";
    suggestion.title = *title;
    suggestion.actionText = *actionText;
    std::optional<std::string> id;
    std::optional<std::int64_t> priority;
    if (!readText(from, "id", id) || !readText(from, "body", suggestion.body)
        || !readText(from, "sourceLabel", suggestion.sourceLabel))
        return "has an 'id', 'body' or 'sourceLabel' that is not a string";
    if (!readInteger(from, "priority", priority)) return "has a 'priority' that is not an integer";
    if (id && !id->empty()) suggestion.id = *id;
    suggestion.priority = priority.value_or(0);
    const auto expires = from.find("expiresAt");
    if (expires == from.end() || expires->is_null()) return std::nullopt;
    if (!expires->is_number()) return "has an 'expiresAt' that is not a number of seconds since 1970";
    suggestion.expiresAt = fromSecondsSince1970(expires->get<double>());
    return std::nullopt;
}

/// Property values are texts; numbers and the like are kept as their JSON text.
std::optional<DatabaseManager::Properties> propertiesOf(const json& params) {
    const auto found = params.find("properties");
    if (found == params.end() || found->is_null()) return DatabaseManager::Properties();
    if (!found->is_object()) return std::nullopt;
    DatabaseManager::Properties properties;
    for (const auto& [key, value] : found->items())
        properties[key] = value.is_string() ? value.get<std::string>() : value.dump();
    return properties;
}

constexpr const char* badProperties = "Invalid params: 'properties' must be an object";

void appendNumber(std::string& out, double value) {
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

void appendProperties(std::string& out, const DatabaseManager::Properties& properties) {
    out += ",\"properties\":{";
    bool first = true;
    for (const auto& [key, value] : properties) {
        if (!std::exchange(first, false)) out += ',';
        JsonRpc::appendQuoted(out, key);
        out += ':';
        JsonRpc::appendQuoted(out, value);
    }
    out += '}';
}

std::string graphJson(const KnowledgeGraph::Answer& answer) {
    std::string out = "{\"nodes\":[";
    const auto texts = [&](std::initializer_list<std::pair<const char*, const std::string*>> members) {
        char before = '{';
        for (const auto& [key, text] : members) {
            out.append(1, std::exchange(before, ',')).append("\"").append(key).append("\":");
            JsonRpc::appendQuoted(out, *text);
        }
    };
    for (const auto& node : answer.nodes) {
        if (&node != &answer.nodes.front()) out += ',';
        texts({{"id", &node.id}, {"type", &node.type}, {"name", &node.name}});
        appendProperties(out, node.properties);
        out += ",\"createdAt\":";
        appendNumber(out, node.createdAt);
        out += ",\"updatedAt\":";
        appendNumber(out, node.updatedAt);
        out += '}';
    }
    out += "],\"edges\":[";
    for (const auto& edge : answer.edges) {
        if (&edge != &answer.edges.front()) out += ',';
        texts({{"id", &edge.id},
               {"source", &edge.source},
               {"target", &edge.target},
               {"relationship", &edge.relationship}});
        appendProperties(out, edge.properties);
        out += ",\"createdAt\":";
        appendNumber(out, edge.createdAt);
        out += '}';
    }
    return out + "]}";
}
} // namespace

MCPRequestHandler::Answer MCPRequestHandler::pushSuggestions(const Call& call) {
    const auto list = call.params.find("suggestions");
    if (list == call.params.end() || !list->is_array())
        return unexpected(Failure{jsonRpcCode::invalidParams, "Invalid params: 'suggestions' array required"});
    std::vector<MCPSuggestion> suggestions;
    for (const auto& one : *list) {
        MCPSuggestion suggestion;
        suggestion.id = use_.random.uuid();
        suggestion.expiresAt = use_.clock.now() + defaultLifetime;
        if (const auto fault = readSuggestion(one, suggestion))
            return unexpected(
                Failure{jsonRpcCode::invalidParams,
                        "Invalid params: suggestion " + std::to_string(suggestions.size() + 1) + " " + *fault});
        suggestions.push_back(std::move(suggestion));
    }
    const std::size_t count = suggestions.size();
    use_.suggestions.push(std::move(suggestions));
    return JsonRpc::quoted("Pushed " + std::to_string(count) + " suggestions successfully.");
}

MCPRequestHandler::Answer MCPRequestHandler::clearSuggestions(const Call& call) {
    std::optional<std::vector<std::string>> ids;
    if (!readTexts(call.params, "ids", ids))
        return unexpected(Failure{jsonRpcCode::invalidParams, "Invalid params: 'ids' must be a list of strings"});
    if (ids) {
        use_.suggestions.clear(*ids);
    } else {
        use_.suggestions.clear();
    }
    return JsonRpc::quoted("Suggestions cleared successfully.");
}

MCPRequestHandler::Answer MCPRequestHandler::pushMemory(const Call& call) {
    const auto key = textOf(call.params, "key");
    const auto value = textOf(call.params, "value");
    const auto context = textOf(call.params, "context");
    if (!key || !value || !context)
        return unexpected(
            Failure{jsonRpcCode::invalidParams, "Invalid params: 'key', 'value', and 'context' strings required"});
    std::optional<std::string> tags;
    std::optional<std::vector<std::string>> list;
    if (!readText(call.params, "tags", tags) && !readTexts(call.params, "tags", list))
        return unexpected(
            Failure{jsonRpcCode::invalidParams, "Invalid params: 'tags' must be a string or a list of strings"});
    if (list) {
        tags.emplace();
        for (const auto& tag : *list) *tags += (tags->empty() ? "" : ",") + tag;
    }
    const auto sealed = use_.sealer.seal(*value);
    if (!sealed) return unexpected(Failure{jsonRpcCode::failed, "Failed to encrypt knowledge entry"});
    if (!use_.database.insertMCPKnowledge(*key, *sealed, *context, tags))
        return unexpected(Failure{jsonRpcCode::failed, "Failed to store knowledge entry"});
    return JsonRpc::quoted("Knowledge memory stored securely.");
}

MCPRequestHandler::Answer MCPRequestHandler::triggerAI(const Call& call) {
    const auto prompt = textOf(call.params, "prompt");
    if (!prompt) return unexpected(Failure{jsonRpcCode::invalidParams, "Invalid params: 'prompt' string required"});
    AICompletion::Request request;
    request.prompt = *prompt;
    std::optional<std::string> action = request.action;
    std::optional<std::string> style = request.style;
    std::optional<std::string> language = request.language;
    if (!readText(call.params, "action", action) || !readText(call.params, "style", style)
        || !readText(call.params, "language", language) || !readInteger(call.params, "maxTokens", request.maxTokens))
        return unexpected(Failure{jsonRpcCode::invalidParams,
                                  "Invalid params: 'action', 'style' and 'language' must be "
                                  "strings and 'maxTokens' an integer"});
    request.action = *action;
    request.style = *style;
    request.language = *language;
    if (!use_.assistant)
        return unexpected(
            Failure{jsonRpcCode::failed, "AI Generation error: This program runs without an AI assistant."});
    const auto answer = use_.assistant->complete(request, call.stop);
    if (!answer) return unexpected(Failure{jsonRpcCode::failed, "AI Generation error: " + answer.error()});
    std::string out =
        "{\"text\":" + JsonRpc::quoted(answer->text) + ",\"provider\":" + JsonRpc::quoted(answer->provider);
    out += ",\"model\":" + JsonRpc::quoted(answer->model);
    return out + ",\"estimatedTokens\":" + std::to_string(answer->estimatedTokens) + "}";
}

MCPRequestHandler::Answer MCPRequestHandler::queryGraph(const Call& call) {
    GraphQuery query;
    std::optional<std::int64_t> depth;
    std::optional<std::int64_t> limit;
    for (const auto& [key, field] :
         {std::pair{"id", &query.id}, std::pair{"type", &query.type}, std::pair{"name", &query.name},
          std::pair{"relationship", &query.relationship}, std::pair{"from", &query.from}})
        if (!readText(call.params, key, *field))
            return unexpected(
                Failure{jsonRpcCode::invalidParams, std::string("Invalid params: '") + key + "' must be a string"});
    if (!readInteger(call.params, "depth", depth) || (depth && (*depth < 0 || *depth > KnowledgeGraph::maxDepth)))
        return unexpected(
            Failure{jsonRpcCode::invalidParams, "Invalid params: 'depth' must be an integer from 0 to 4"});
    if (!readInteger(call.params, "limit", limit)
        || (limit && (*limit < 1 || *limit > static_cast<std::int64_t>(KnowledgeGraph::maxLimit))))
        return unexpected(
            Failure{jsonRpcCode::invalidParams, "Invalid params: 'limit' must be an integer from 1 to 1000"});
    query.depth = static_cast<int>(depth.value_or(query.from ? 1 : 0));
    if (limit) query.limit = static_cast<std::size_t>(*limit);
    return graphJson(use_.graph.query(query));
}

MCPRequestHandler::Answer MCPRequestHandler::pushNode(const Call& call) {
    const auto id = textOf(call.params, "id");
    const auto type = textOf(call.params, "type");
    const auto name = textOf(call.params, "name");
    if (!id || !type || !name)
        return unexpected(Failure{jsonRpcCode::invalidParams, "Invalid params: 'id', 'type', and 'name' are required"});
    const auto properties = propertiesOf(call.params);
    if (!properties) return unexpected(Failure{jsonRpcCode::invalidParams, badProperties});
    const double now = secondsSince1970(use_.clock.now());
    const auto pushed = use_.graph.pushNode({*id, *type, *name, *properties, now, now});
    if (!pushed) return unexpected(Failure{jsonRpcCode::failed, message(pushed.error())});
    return JsonRpc::quoted("Node pushed successfully.");
}

MCPRequestHandler::Answer MCPRequestHandler::pushEdge(const Call& call) {
    const auto id = textOf(call.params, "id");
    const auto source = textOf(call.params, "source");
    const auto target = textOf(call.params, "target");
    const auto relationship = textOf(call.params, "relationship");
    if (!id || !source || !target || !relationship)
        return unexpected(Failure{jsonRpcCode::invalidParams,
                                  "Invalid params: 'id', 'source', 'target', and 'relationship' are required"});
    const auto properties = propertiesOf(call.params);
    if (!properties) return unexpected(Failure{jsonRpcCode::invalidParams, badProperties});
    const double now = secondsSince1970(use_.clock.now());
    const auto pushed = use_.graph.pushEdge({*id, *source, *target, *relationship, *properties, now});
    if (!pushed) return unexpected(Failure{jsonRpcCode::failed, message(pushed.error())});
    return JsonRpc::quoted("Edge pushed successfully.");
}
} // namespace snipwren
