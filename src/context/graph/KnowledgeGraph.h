#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Result.h"
#include "store/DatabaseManager.h"

namespace snipwren {
enum class GraphError { missingEndpoint, notStored };
/// The sentence for whoever pushed.
const char* message(GraphError error);

/// Which part of the graph to answer. Without `from` the nodes that match id, type and name are looked up, and the walk
/// starts at them; with `from` it starts there, and the three select among the nodes it comes to.
struct GraphQuery {
    std::optional<std::string> id = {};
    std::optional<std::string> type = {};
    /// A part of the name, in any letter case.
    std::optional<std::string> name = {};
    /// Only edges of this relationship are walked and answered.
    std::optional<std::string> relationship = {};
    std::optional<std::string> from = {};
    /// Steps along edges, in either direction.
    int depth = 0;
    std::size_t limit = 100;
};

/// Entities and their relationships, kept in memory as an adjacency list and in the database. Read from the database at
/// the first use; what is pushed goes to the database first. Thread safe.
class KnowledgeGraph {
public:
    using Node = DatabaseManager::Node;
    using Edge = DatabaseManager::Edge;
    static constexpr int maxDepth = 4;
    static constexpr std::size_t maxLimit = 1000;
    /// Edges answered per node asked for, at most: a hub of the graph must not fill the answer.
    static constexpr std::size_t edgesPerNode = 10;
    struct Answer {
        std::vector<Node> nodes;
        std::vector<Edge> edges;
    };

    explicit KnowledgeGraph(DatabaseManager& database) : database_(database) {}

    /// A known node gets the new name, properties and moment of update; its type and its creation stay.
    Result<void, GraphError> pushNode(const Node& node);
    /// Both ends must be there. Of a known edge only the properties change.
    Result<void, GraphError> pushEdge(const Edge& edge);
    Answer query(const GraphQuery& query);
    std::size_t nodeCount();
    std::size_t edgeCount();

private:
    using Index = std::uint32_t;
    struct Vertex {
        Node node;
        std::string lowercasedName;
        std::vector<Index> edges; // Both those that leave and those that arrive.
    };
    struct Link {
        Edge edge;
        Index source;
        Index target;
    };
    void loadOnce();
    void insert(const Node& node);
    void insert(const Edge& edge);
    std::vector<Index> startOf(const GraphQuery& query, const std::string& lowercasedName) const;
    bool matches(const Vertex& vertex, const GraphQuery& query, const std::string& lowercasedName) const;

    DatabaseManager& database_;
    std::once_flag loaded_;
    std::mutex writing_; // One writer at a time, from its database statement to its change here.
    std::shared_mutex mutex_;
    std::vector<Vertex> nodes_;
    std::vector<Link> edges_;
    std::unordered_map<std::string, Index> nodeById_;
    std::unordered_map<std::string, Index> edgeById_;
};
} // namespace snipwren
