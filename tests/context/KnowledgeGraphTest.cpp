#include "context/graph/KnowledgeGraph.h"

#include <thread>

#include "base/ThreadQueue.h"
#include "support/ContextFixture.h"

namespace snipwren {
namespace {
class KnowledgeGraphTest : public ContextFixture {
protected:
    void node(const std::string& id, const std::string& type = "t", const std::string& name = "") {
        ASSERT_TRUE(graph.pushNode({id, type, name.empty() ? id : name, {}, 1, 1}));
    }
    void edge(const std::string& source, const std::string& target, const std::string& relationship = "r") {
        ASSERT_TRUE(graph.pushEdge({source + target + relationship, source, target, relationship, {}, 1}));
    }
    static std::string ids(const KnowledgeGraph::Answer& answer) {
        std::string all;
        for (const auto& one : answer.nodes) all += one.id;
        all += ' ';
        for (const auto& one : answer.edges) all += one.source + one.target;
        return all;
    }
};

TEST_F(KnowledgeGraphTest, FindsAndWalks) {
    // a → b → c → d → a is a cycle; e hangs on b by another relationship; f stands alone.
    for (const char* id : {"a", "b", "c", "d"}) node(id);
    node("e", "person", "Émile Zola");
    node("f", "person", "Fritz");
    edge("a", "b");
    edge("b", "c");
    edge("c", "d");
    edge("d", "a");
    edge("b", "e", "knows");
    edge("a", "a", "self");
    const std::tuple<const char*, GraphQuery, const char*> cases[] = {
        {"everything", {}, "abcdef abaabcbecdda"},
        {"id", {.id = "c"}, "c "},
        {"id and another type", {.id = "c", .type = "person"}, " "},
        {"type", {.type = "person"}, "ef "},
        {"name in any case", {.name = "éMILE"}, "e "},
        {"relationship alone", {.relationship = "knows"}, "be be"},
        {"limit", {.limit = 2}, "ab abaa"},
        {"unknown start", {.from = "zz", .depth = 4}, " "},
        {"no steps", {.from = "b", .depth = 0}, "b "},
        {"one step, both directions", {.from = "b", .depth = 1}, "bace bcbeabaa"},
        {"one relationship", {.relationship = "r", .from = "b", .depth = 1}, "bac bcab"},
        {"round the cycle", {.relationship = "r", .from = "a", .depth = 4}, "abdc abdabccd"},
        {"selected on the way", {.type = "person", .from = "a", .depth = 2}, "ae aa"},
        {"from those found", {.name = "zola", .depth = 1}, "eb be"},
        {"walk and limit", {.from = "b", .depth = 4, .limit = 3}, "bac bcabaa"}};
    for (const auto& [why, query, want] : cases) {
        const std::string got = ids(graph.query(query));
        const std::string wanted = want;
        EXPECT_EQ(got.substr(0, got.find(' ')), wanted.substr(0, wanted.find(' '))) << why;
        auto edgesOf = [](std::string text) {
            std::vector<std::string> all;
            for (std::size_t i = text.find(' ') + 1; i + 1 < text.size(); i += 2) all.push_back(text.substr(i, 2));
            std::sort(all.begin(), all.end());
            return all;
        };
        EXPECT_EQ(edgesOf(got), edgesOf(wanted)) << why;
    }
}

TEST_F(KnowledgeGraphTest, MemoryAndDatabaseAgree) {
    ASSERT_TRUE(graph.pushNode({"n", "first", "One", {{"k", "v"}}, 1, 1}));
    ASSERT_TRUE(graph.pushNode({"n", "second", "Two", {{"k", "w"}}, 5, 6}));
    node("m");
    ASSERT_TRUE(graph.pushEdge({"e", "n", "m", "r", {}, 1}));
    ASSERT_TRUE(graph.pushEdge({"e", "m", "n", "other", {{"p", "q"}}, 9}));
    EXPECT_EQ(graph.pushEdge({"x", "n", "nobody", "r", {}, 1}), unexpected(GraphError::missingEndpoint));
    KnowledgeGraph reloaded(database);
    for (KnowledgeGraph* one : {&graph, &reloaded}) {
        const auto answer = one->query({.id = "n", .depth = 1});
        ASSERT_EQ(answer.nodes.size(), 2u);
        EXPECT_EQ(answer.nodes[0].type, "first") << "the type stays";
        EXPECT_EQ(answer.nodes[0].name, "Two");
        EXPECT_EQ(answer.nodes[0].properties.at("k"), "w");
        EXPECT_EQ(answer.nodes[0].createdAt, 1);
        EXPECT_EQ(answer.nodes[0].updatedAt, 6);
        ASSERT_EQ(answer.edges.size(), 1u);
        EXPECT_EQ(answer.edges[0].source, "n");
        EXPECT_EQ(answer.edges[0].relationship, "r");
        EXPECT_EQ(answer.edges[0].properties.at("p"), "q");
    }
}

TEST_F(KnowledgeGraphTest, AnswersWhileItIsWritten) {
    ThreadQueue databaseQueue(DatabaseManager::queueLabel);
    databaseQueue.start();
    DatabaseManager own(
        {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = databaseQueue, .log = log});
    own.open();
    KnowledgeGraph shared(own);
    std::thread writer([&] {
        for (int i = 0; i < 300; ++i) {
            const std::string id = std::to_string(i);
            (void)shared.pushNode({id, "t", id, {}, 1, 1});
            if (i > 0) (void)shared.pushEdge({id, id, std::to_string(i - 1), "r", {}, 1});
        }
    });
    for (int i = 0; i < 200; ++i) {
        const auto answer = shared.query({.from = "0", .depth = 4});
        EXPECT_LE(answer.nodes.size(), 5u);
        EXPECT_EQ(answer.edges.size(), answer.nodes.empty() ? 0 : answer.nodes.size() - 1);
    }
    writer.join();
    EXPECT_EQ(shared.nodeCount(), 300u);
    EXPECT_EQ(shared.edgeCount(), 299u);
}
} // namespace
} // namespace snipwren
