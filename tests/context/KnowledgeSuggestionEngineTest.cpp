#include "context/graph/KnowledgeSuggestionEngine.h"

#include <random>

#include "context/SecondBrainFixture.h"
#include "context/graph/KnowledgeQuery.h"

namespace snipwren {
namespace {
class KnowledgeSuggestionEngineTest : public SecondBrainFixture {
protected:
    void add(const std::string& title, const std::string& content) {
        indexer_.indexFileDirectly(title, content, "/notes/" + title + ".md", "notes");
    }
    std::vector<std::string> titles(const KnowledgeSuggestionEngine&, const std::string& query, std::size_t limit) {
        std::vector<std::string> found;
        for (const auto& model : engine_.find(query, limit)) found.push_back(model.title + "|" + model.snippet);
        return found;
    }
};

TEST_F(KnowledgeSuggestionEngineTest, SuggestsFromThreeWordsOnAndAtMostThreeNotes) {
    for (int i = 0; i < 5; ++i) add("Note " + std::to_string(i), "deploying the clusters today");
    EXPECT_TRUE(engine_.search("deploy the").empty());
    EXPECT_TRUE(engine_.search("a - b ! c").empty());
    EXPECT_TRUE(engine_.search("deploy the missing").empty());
    const auto found = engine_.search("Deploy the cluster");
    ASSERT_EQ(found.size(), 3u);
    EXPECT_NE(found[0].id, found[1].id);
    EXPECT_EQ(engine_.find("deploy", 10).size(), 5u);
}

TEST_F(KnowledgeSuggestionEngineTest, AnswersAnyText) {
    add("Operators", "salt and pepper or not near here");
    for (const char* query : {"AND OR NOT", "NEAR(salt pepper)", "title : \"salt\" *", "^salt + pepper - \"",
                              "'; DROP TABLE knowledge_fts; --", "\xFF\xFE\xFD broken bytes here", "ัััั ก็็็ ะะะ",
                              "{salt pepper} : here", "rank:1 knowledge_fts 0x00"})
        (void)engine_.search(query);
    EXPECT_EQ(engine_.search("salt AND pepper").size(), 1u);
    EXPECT_EQ(engine_.search("salt NOT pepper").size(), 1u); // A word like any other.
}

TEST_F(KnowledgeSuggestionEngineTest, FindsWordsInScriptsWithoutBlanks) {
    add("会議メモ", "明日の東京会議の資料を準備する。場所は東京駅の近く");
    add("料理", "今日は天ぷらを作る");
    add("ไทย", "ประชุมที่กรุงเทพ พรุ่งนี้");
    add("latin", "nothing of the kind");
    for (const auto& [query, title] : {std::pair{"東京会議", "会議メモ"},
                                       {"東京 資料", "会議メモ"},
                                       {"駅", "会議メモ"},
                                       {"天ぷら", "料理"},
                                       {"กรุงเทพ", "ไทย"},
                                       {"会議メモ", "会議メモ"}}) {
        const auto found = engine_.find(query, 5);
        ASSERT_EQ(found.size(), 1u) << query;
        EXPECT_EQ(found[0].title, title) << query;
    }
    EXPECT_NE(engine_.find("東京駅", 5).at(0).snippet.find("東京駅"), std::string::npos);
    EXPECT_TRUE(engine_.find("大阪", 5).empty());
}

TEST_F(KnowledgeSuggestionEngineTest, RanksCommonWordsAsTheFullTextEngineDoes) {
    std::mt19937 random(3); // NOLINT(cert-msc51-cpp): the same notes every time.
    const char* const words[] = {"the",     "them", "then",  "and",  "android",  "with",
                                 "without", "of",   "offer", "plan", "planning", "cat"};
    ASSERT_TRUE(indexer_.store().database().execute("BEGIN;"));
    for (std::size_t i = 0; i < KnowledgeRanker::worthwhile + 500; ++i) {
        std::string text;
        for (auto n = 3 + random() % 30; n > 0; --n)
            text += std::string(words[std::min(random() % 12, random() % 12)]) + " ";
        ASSERT_TRUE(indexer_.store().insert({"n" + std::to_string(i / 2), text, "/p", "s"}));
        if (i % 2) continue;
        ASSERT_TRUE(indexer_.store().insert({"n" + std::to_string(i / 2), text, "/p", "s"})); // Equal scores.
    }
    ASSERT_TRUE(indexer_.store().database().execute("COMMIT;"));
    indexer_.indexFileDirectly("last", "x", "/p", "s");
    for (const char* query : {"the and with", "the of and with off", "plan the", "the the the", "an* wi* th*",
                              "cat planning offers", "then zebra the"}) {
        auto statement = indexer_.store().database().prepare(
            "SELECT title, snippet(knowledge_fts, 1, '', '', '...', 25) FROM knowledge_fts WHERE knowledge_fts MATCH ? "
            "ORDER BY rank LIMIT 7;");
        ASSERT_TRUE(statement);
        statement->bind(1, KnowledgeQuery::cleanFTSQuery(query));
        const auto want = statement->rows([](const Statement& row) { return row.text(0) + "|" + row.text(1); });
        ASSERT_TRUE(want);
        EXPECT_EQ(titles(engine_, query, 7), *want) << query;
        EXPECT_EQ(titles(engine_, query, 7), *want) << query << ", from what is kept";
    }
    add("Fresh", "the and freshly"); // What was kept must not hide it.
    EXPECT_EQ(titles(engine_, "the and freshly", 7), std::vector<std::string>{"Fresh|the and freshly"});
    EXPECT_EQ(titles(engine_, "the and fresh", 7), std::vector<std::string>{"Fresh|the and freshly"});
}
} // namespace
} // namespace snipwren
