#include "context/graph/KnowledgeGraph.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
const char* message(GraphError error) {
    switch (error) {
    case GraphError::missingEndpoint:
        return "The edge's source and target must be known nodes. Push them first with snipwren.pushNode.";
    case GraphError::notStored: return "The knowledge graph could not be saved. The log says why.";
    }
    return {};
}

void KnowledgeGraph::loadOnce() {
    std::call_once(loaded_, [this] {
        const auto nodes = database_.fetchNodes();
        const auto edges = database_.fetchEdges();
        const std::unique_lock lock(mutex_);
        nodes_.reserve(nodes.size());
        edges_.reserve(edges.size());
        for (const auto& node : nodes) insert(node);
        for (const auto& edge : edges) insert(edge);
    });
}

Result<void, GraphError> KnowledgeGraph::pushNode(const Node& node) {
    loadOnce();
    const std::lock_guard writing(writing_);
    if (!database_.saveNode(node)) return unexpected(GraphError::notStored);
    const std::unique_lock lock(mutex_);
    insert(node);
    return {};
}

Result<void, GraphError> KnowledgeGraph::pushEdge(const Edge& edge) {
    loadOnce();
    const std::lock_guard writing(writing_);
    {
        const std::shared_lock lock(mutex_);
        if (!nodeById_.contains(edge.source) || !nodeById_.contains(edge.target))
            return unexpected(GraphError::missingEndpoint);
    }
    if (!database_.saveEdge(edge)) return unexpected(GraphError::notStored);
    const std::unique_lock lock(mutex_);
    insert(edge);
    return {};
}

void KnowledgeGraph::insert(const Node& node) {
    const auto [place, isNew] = nodeById_.try_emplace(node.id, static_cast<Index>(nodes_.size()));
    if (isNew) {
        nodes_.push_back({node, lowercased(node.name), {}});
        return;
    }
    Vertex& known = nodes_[place->second];
    known.node.name = node.name;
    known.node.properties = node.properties;
    known.node.updatedAt = node.updatedAt;
    known.lowercasedName = lowercased(node.name);
}

void KnowledgeGraph::insert(const Edge& edge) {
    const auto source = nodeById_.find(edge.source);
    const auto target = nodeById_.find(edge.target);
    if (source == nodeById_.end() || target == nodeById_.end()) return; // The database holds no such edges.
    const auto [place, isNew] = edgeById_.try_emplace(edge.id, static_cast<Index>(edges_.size()));
    if (!isNew) {
        edges_[place->second].edge.properties = edge.properties;
        return;
    }
    nodes_[source->second].edges.push_back(place->second);
    if (target->second != source->second) nodes_[target->second].edges.push_back(place->second);
    edges_.push_back({edge, source->second, target->second});
}

bool KnowledgeGraph::matches(const Vertex& vertex, const GraphQuery& query, const std::string& lowercasedName) const {
    return (!query.id || vertex.node.id == *query.id) && (!query.type || vertex.node.type == *query.type)
           && (!query.name || vertex.lowercasedName.find(lowercasedName) != std::string::npos);
}

std::vector<KnowledgeGraph::Index> KnowledgeGraph::startOf(const GraphQuery& query,
                                                           const std::string& lowercasedName) const {
    std::vector<Index> start;
    if (const auto& only = query.from ? query.from : query.id) {
        const auto found = nodeById_.find(*only);
        if (found != nodeById_.end() && (query.from || matches(nodes_[found->second], query, lowercasedName)))
            start.push_back(found->second);
        return start;
    }
    // A relationship alone asks for the nodes that it connects.
    const auto takesPart = [&](const Vertex& vertex) {
        return query.type || query.name || !query.relationship
               || std::any_of(vertex.edges.begin(), vertex.edges.end(),
                              [&](Index edge) { return edges_[edge].edge.relationship == *query.relationship; });
    };
    for (Index i = 0; i < nodes_.size() && start.size() < query.limit; ++i)
        if (matches(nodes_[i], query, lowercasedName) && takesPart(nodes_[i])) start.push_back(i);
    return start;
}

KnowledgeGraph::Answer KnowledgeGraph::query(const GraphQuery& query) {
    loadOnce();
    const std::string name = lowercased(query.name.value_or(std::string()));
    const std::shared_lock lock(mutex_);
    const auto walked = [&](Index edge) {
        return !query.relationship || edges_[edge].edge.relationship == *query.relationship;
    };
    std::vector<Index> found = startOf(query, name);
    std::vector<char> seen(nodes_.size(), 0);
    std::vector<char> answered(nodes_.size(), 0);
    for (const Index node : found) seen[node] = answered[node] = 1;
    std::vector<Index> frontier = found;
    for (int step = 0; step < query.depth && found.size() < query.limit; ++step) {
        std::vector<Index> next;
        for (const Index node : frontier)
            for (const Index edge : nodes_[node].edges) {
                if (!walked(edge)) continue;
                const Index other = edges_[edge].source == node ? edges_[edge].target : edges_[edge].source;
                if (std::exchange(seen[other], 1)) continue;
                next.push_back(other);
                if (found.size() == query.limit || (query.from && !matches(nodes_[other], query, name))) continue;
                answered[other] = 1;
                found.push_back(other);
            }
        frontier = std::move(next);
    }
    Answer answer;
    answer.nodes.reserve(found.size());
    const std::size_t maxEdges = query.limit * edgesPerNode;
    for (const Index node : found) {
        answer.nodes.push_back(nodes_[node].node);
        for (const Index edge : nodes_[node].edges) {
            if (answer.edges.size() == maxEdges) break;
            if (edges_[edge].source == node && answered[edges_[edge].target] && walked(edge))
                answer.edges.push_back(edges_[edge].edge);
        }
    }
    return answer;
}

std::size_t KnowledgeGraph::nodeCount() {
    loadOnce();
    const std::shared_lock lock(mutex_);
    return nodes_.size();
}

std::size_t KnowledgeGraph::edgeCount() {
    loadOnce();
    const std::shared_lock lock(mutex_);
    return edges_.size();
}
} // namespace snipwren
