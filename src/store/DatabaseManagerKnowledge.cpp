// What the context server keeps: its context and knowledge, the knowledge graph and the sync metadata.

#include <nlohmann/json.hpp>

#include "base/Clock.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "store/DatabaseManager.h"

namespace snipwren {
namespace {
using Properties = DatabaseManager::Properties;

std::string jsonOf(const Properties& properties) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, value] : properties) object[key] = value;
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// What is no text is left out; what is no JSON object gives no properties.
Properties propertiesOf(const std::string& json) {
    Properties properties;
    const auto object = nlohmann::json::parse(json, nullptr, false);
    if (!object.is_object()) return properties;
    for (const auto& [key, value] : object.items())
        if (value.is_string()) properties.emplace(key, value.get<std::string>());
    return properties;
}
} // namespace

bool DatabaseManager::updateMCPContext(const McpContext& context) {
    return queue_.call([&] {
        if (attempt("INSERT OR REPLACE INTO mcp_context (id, project, topic, related_notes, active_decision, metadata, "
                    "timestamp)\nVALUES (1, ?, ?, ?, ?, ?, ?);",
                    context.project, context.topic, context.relatedNotes, context.activeDecision, context.metadata,
                    now()))
            return true;
        log_.line("❌ SQLite Error: Failed to insert/replace MCP Context");
        return false;
    });
}

std::optional<DatabaseManager::Row> DatabaseManager::fetchMCPContext() {
    Rows rows = executeQuery("SELECT project, topic, related_notes, active_decision, metadata\nFROM mcp_context "
                             "WHERE id = 1;");
    if (rows.empty()) return std::nullopt;
    return std::move(rows.front());
}

bool DatabaseManager::insertMCPKnowledge(const std::string& key, const std::string& valueEncrypted,
                                         const std::string& context, const OptionalText& tags) {
    return queue_.call([&] {
        if (attempt("INSERT OR REPLACE INTO mcp_knowledge (key, value_encrypted, context, tags, timestamp)\n"
                    "VALUES (?, ?, ?, ?, ?);",
                    key, valueEncrypted, context, tags, now()))
            return true;
        log_.line("❌ SQLite Error: Failed to insert/replace MCP Knowledge");
        return false;
    });
}

DatabaseManager::Rows DatabaseManager::fetchAllMCPKnowledge() {
    return executeQuery("SELECT key, value_encrypted, context, tags FROM mcp_knowledge;");
}

bool DatabaseManager::saveNode(const Node& node) {
    return queue_.call([&] {
        return told(attempt("INSERT INTO kg_nodes (id, type, name, properties, created_at, updated_at)\n"
                            "VALUES (?, ?, ?, ?, ?, ?)\nON CONFLICT(id) DO UPDATE SET name = excluded.name,\n"
                            "properties = excluded.properties,\nupdated_at = excluded.updated_at;",
                            node.id, node.type, node.name, jsonOf(node.properties), node.createdAt, node.updatedAt),
                    "❌ SQLite Error Node Save: ");
    });
}

bool DatabaseManager::deleteNode(const std::string& id) {
    return executeNonQueryWithParams("DELETE FROM kg_nodes WHERE id = ?;", {id});
}

bool DatabaseManager::saveEdge(const Edge& edge) {
    return queue_.call([&] {
        return told(attempt("INSERT INTO kg_edges (id, source, target, relationship, properties, created_at)\n"
                            "VALUES (?, ?, ?, ?, ?, ?)\nON CONFLICT(id) DO UPDATE SET "
                            "properties = excluded.properties;",
                            edge.id, edge.source, edge.target, edge.relationship, jsonOf(edge.properties),
                            edge.createdAt),
                    "❌ SQLite Error Edge Save: ");
    });
}

bool DatabaseManager::deleteEdge(const std::string& id) {
    return executeNonQueryWithParams("DELETE FROM kg_edges WHERE id = ?;", {id});
}

std::vector<DatabaseManager::Node> DatabaseManager::fetchNodes() {
    return queue_.call([&] {
        return read(prepare("SELECT id, type, name, properties, created_at, updated_at FROM kg_nodes;"),
                    "❌ SQLite Query Error: ", [](Statement& row) {
                        return Node{row.text(0), row.text(1), row.text(2), propertiesOf(row.text(3)),
                                    row.real(4), row.real(5)};
                    });
    });
}

std::vector<DatabaseManager::Edge> DatabaseManager::fetchEdges() {
    return queue_.call([&] {
        return read(prepare("SELECT id, source, target, relationship, properties, created_at FROM kg_edges;"),
                    "❌ SQLite Query Error: ", [](Statement& row) {
                        return Edge{row.text(0), row.text(1), row.text(2), row.text(3), propertiesOf(row.text(4)),
                                    row.real(5)};
                    });
    });
}

void DatabaseManager::clearKnowledgeGraph() {
    queue_.sync([this] {
        nonQuery("DELETE FROM kg_edges;");
        nonQuery("DELETE FROM kg_nodes;");
    });
}

bool DatabaseManager::saveSyncMetadata(const std::string& key, const std::string& value) {
    return queue_.call([&] {
        return told(attempt("INSERT INTO sync_metadata (key, value, updated_at)\nVALUES (?, ?, ?)\n"
                            "ON CONFLICT(key) DO UPDATE SET value = excluded.value,\n"
                            "updated_at = excluded.updated_at;",
                            key, value, now()),
                    "❌ SQLite Error Sync Metadata Save: ");
    });
}

DatabaseManager::OptionalText DatabaseManager::fetchSyncMetadata(const std::string& key) {
    return queue_.call([&]() -> OptionalText {
        auto values = read(
            prepare("SELECT value FROM sync_metadata WHERE key = ?;"),
            "❌ SQLite Query Error: ", [](Statement& row) { return row.text(0); }, key);
        if (values.empty()) return std::nullopt;
        return std::move(values.front());
    });
}
} // namespace snipwren
