#include "store/DatabaseManager.h"

#include <algorithm>
#include <barrier>
#include <thread>

#include "base/Regex.h"
#include "base/ThreadQueue.h"
#include "store/RulesSchema.h"
#include "store/StoreFixture.h"

namespace snipwren {
namespace {
using DatabaseManagerTest = StoreFixture;

int seededLines(const MemoryLog& log) {
    return static_cast<int>(
        std::ranges::count_if(log.lines(), [](const auto& line) { return line.starts_with("✅ Seeded Rule: "); }));
}

TEST_F(DatabaseManagerTest, SeedsOnceAndKeepsTheUsersChoices) {
    {
        DatabaseManager manager(dependencies());
        manager.open();
        EXPECT_TRUE(manager.isPersistent());
        EXPECT_EQ(log.lines().front(), "📁 SnipwrenRules.db Path: " + databaseFile());
        EXPECT_TRUE(logged("✅ Seeded Rule: M018"));
        EXPECT_EQ(seededLines(log), 18);
        EXPECT_EQ(manager.fetchExclusionList().size(), 7u);
        EXPECT_TRUE(manager.updateRuleEnabled("M010", false));
        EXPECT_TRUE(manager.deleteExclusion("com.bitwarden.desktop"));
        EXPECT_TRUE(manager.addExclusion("org.example.it's", "app", "mine"));
    }
    DatabaseManager again(dependencies());
    again.open();
    EXPECT_EQ(seededLines(log), 18) << "the second start seeds nothing";
    EXPECT_EQ(again.fetchRulesConfig().size(), 18u);
    for (const auto& rule : again.fetchRulesConfig())
        EXPECT_EQ(rule.at("is_enabled"), rule.at("id") == "M010" ? "0" : "1") << rule.at("id");
    const auto excluded = again.fetchExclusionList();
    EXPECT_EQ(std::ranges::count(excluded, "com.bitwarden.desktop"), 1) << "password managers come back";
    EXPECT_EQ(std::ranges::count(excluded, "org.example.it's"), 1);
}

TEST_F(DatabaseManagerTest, EverySeededPatternCompiles) {
    for (const auto& rule : RulesSchema::rules()) EXPECT_TRUE(Regex::compile(rule.pattern)) << rule.id;
}

TEST_F(DatabaseManagerTest, IdentitiesFollowTheirExclusion) {
    DatabaseManager manager(dependencies());
    manager.open();
    const auto has = [&](const char* identity) {
        return std::ranges::count(manager.fetchExclusionIdentities(), identity) > 0;
    };
    for (const auto& exclusion : RulesSchema::exclusions()) {
        const auto identities = RulesSchema::identities();
        EXPECT_TRUE(std::ranges::any_of(
            identities, [&](const auto& one) { return std::string_view(one.exclusionId) == exclusion.id; }))
            << exclusion.id << " is not protected on Linux";
    }
    EXPECT_TRUE(has("org.keepassxc.KeePassXC"));
    EXPECT_TRUE(has("1password"));
    ASSERT_TRUE(manager.deleteExclusion("com.1password.1password"));
    EXPECT_FALSE(has("1password")) << "the user took it off the list";
    EXPECT_TRUE(has("org.keepassxc.KeePassXC"));
}

TEST_F(DatabaseManagerTest, WorksInMemoryWhenTheFileCannotBeOpened) {
    ASSERT_TRUE(files.createFolders(databaseFile())); // A folder in the file's place.
    DatabaseManager manager(dependencies());
    manager.open();
    EXPECT_TRUE(logged("❌ SQLite Error: Failed to open SnipwrenRules.db. Falling back to in-memory database."));
    EXPECT_FALSE(manager.isPersistent());
    EXPECT_EQ(manager.fetchRulesConfig().size(), 18u);
    EXPECT_TRUE(manager.saveSyncMetadata("a", "b"));
    EXPECT_EQ(manager.fetchSyncMetadata("a"), "b");
}

TEST_F(DatabaseManagerTest, PutsADamagedFileAsideAndLosesNoneOfIt) {
    const std::string garbage(5000, 'x');
    ASSERT_TRUE(files.createFolders(paths.applicationSupport));
    for (const char* aside : {".damaged", ".damaged-2"}) {
        ASSERT_TRUE(files.writeAtomic(databaseFile(), garbage));
        DatabaseManager manager(dependencies());
        manager.open();
        EXPECT_TRUE(manager.isPersistent());
        EXPECT_TRUE(logged("❌ SQLite Error: SnipwrenRules.db was damaged. It was kept as \"" + databaseFile() + aside
                           + "\" and a new one was started."));
        EXPECT_EQ(*files.read(databaseFile() + aside), garbage);
        EXPECT_EQ(manager.fetchExclusionList().size(), 7u);
    }
}

TEST_F(DatabaseManagerTest, WithoutAFolderEveryStatementFailsAndIsLogged) {
    paths.applicationSupport.clear();
    DatabaseManager manager(dependencies());
    manager.open();
    EXPECT_TRUE(logged("❌ SQLite Error: Application support directory not found."));
    EXPECT_TRUE(manager.fetchRulesConfig().empty());
    EXPECT_FALSE(manager.updateRuleEnabled("M001", false));
    EXPECT_FALSE(manager.insertCapturedText("text", "app", {}));
    bool ran = false;
    EXPECT_FALSE(manager.performRaw([&](Database&) { ran = true; }));
    EXPECT_FALSE(ran);
    EXPECT_EQ(log.lines().size(), 5u);
}

TEST_F(DatabaseManagerTest, FaultsAreLoggedInTheirWords) {
    DatabaseManager manager(dependencies());
    manager.open();
    manager.executeNonQuery("DELETE FROM nowhere; -- " + std::string(200, 'x'));
    EXPECT_TRUE(logged("❌ SQLite NonQuery Error: no such table: nowhere (sql: DELETE FROM nowhere; -- "
                       + std::string(96, 'x') + ")"));
    EXPECT_FALSE(manager.executeNonQueryWithParams("DELETE FROM nowhere;", {}));
    EXPECT_TRUE(logged("❌ SQLite Error Prepare: no such table: nowhere"));
    EXPECT_TRUE(manager.executeQuery("SELECT * FROM nowhere;").empty());
    EXPECT_TRUE(logged("❌ SQLite Query Error: no such table: nowhere"));
    EXPECT_FALSE(manager.executeNonQueryWithParams(
        "INSERT INTO rules_config (id, name, pattern, category, description, severity) VALUES (?, ?, ?, ?, ?, ?);",
        {"M001", "", "", "", "", ""}));
    EXPECT_TRUE(logged("❌ SQLite NonQuery with Params Error: UNIQUE constraint failed: rules_config.id"));
    EXPECT_FALSE(manager.insertSkeleton(999, "no such text"));
    EXPECT_FALSE(manager.saveEdge({"e", "nobody", "no one", "knows", {}, 0}));
    EXPECT_TRUE(logged("❌ SQLite Error Edge Save: FOREIGN KEY constraint failed"));
}

TEST_F(DatabaseManagerTest, TemplatesNeedEnoughRecentOccurrences) {
    DatabaseManager manager(dependencies());
    manager.open();
    const auto text = manager.insertCapturedText("git push origin", "com.example.editor", std::nullopt);
    ASSERT_TRUE(text);
    const auto skeleton = manager.insertSkeleton(*text, "git push <word>");
    ASSERT_TRUE(skeleton);
    const auto active = [&](const char* app) { return manager.fetchActiveTemplates(app).size(); };
    EXPECT_TRUE(manager.incrementSkeletonCount(*skeleton));
    EXPECT_EQ(active("com.example.editor"), 0u) << "twice is not enough";
    EXPECT_EQ(active("com.googlecode.ITerm2"), 1u) << "for a terminal it is";
    EXPECT_TRUE(manager.incrementSkeletonCount(*skeleton));
    EXPECT_EQ(active("com.example.editor"), 1u);
    EXPECT_EQ(manager.fetchActiveTemplates("x").front().at("raw_text"), "git push origin");
    ASSERT_TRUE(defaults.set("repetitionThresholdGeneral", std::int64_t{4}));
    EXPECT_EQ(active("com.example.editor"), 0u);
    ASSERT_TRUE(defaults.set("repetitionThresholdGeneral", "many"));
    EXPECT_EQ(active("com.example.editor"), 1u) << "no number: the default";
    clock.advance(std::chrono::hours(24 * 30));
    EXPECT_EQ(active("com.example.editor"), 1u) << "exactly 30 days";
    clock.advance(std::chrono::seconds(1));
    EXPECT_EQ(active("com.example.editor"), 0u);
    manager.clearAllHistory();
    EXPECT_TRUE(manager.fetchAllSkeletons().empty());
}

TEST_F(DatabaseManagerTest, FieldMemoryAnswersTheMostFrequentThenTheLatest) {
    DatabaseManager manager(dependencies());
    manager.open();
    const auto remember = [&](const char* hash, const DatabaseManager::OptionalText& domain) {
        clock.advance(std::chrono::seconds(1));
        manager.insertFieldMemory({"email", "app", domain, "E-mail", hash, std::string("box-") + hash});
        queue.runReady();
    };
    for (const char* hash : {"a", "b", "c", "d", "e", "f", "a"}) remember(hash, "example.org");
    remember("z", std::nullopt);
    const auto values = [&](const DatabaseManager::OptionalText& domain) {
        std::string all;
        for (const auto& row : manager.fetchFieldMemory("email", "app", domain)) all += row.at("value_encrypted")[4];
        return all;
    };
    EXPECT_EQ(values("example.org"), "afedc") << "five, the one used twice first";
    EXPECT_EQ(values("example.net"), "");
    EXPECT_EQ(values(std::nullopt), "azfed") << "any domain";
    EXPECT_EQ(manager.fetchAllFieldMemories().front().at("domain"), "") << "NULL reads as empty text";
    clock.advance(std::chrono::hours(24 * 180) - std::chrono::seconds(1));
    EXPECT_TRUE(manager.purgeOldFieldMemory());
    EXPECT_EQ(values(std::nullopt), "az") << "used within 180 days";
}

TEST_F(DatabaseManagerTest, GraphRoundTripsAndEdgesGoWithTheirNode) {
    DatabaseManager manager(dependencies());
    manager.open();
    EXPECT_TRUE(manager.saveNode({"n1", "note", "One", {{"tag", "a \"b\"\n\xC3\xA9"}}, 1.5, 2}));
    EXPECT_TRUE(manager.saveNode({"n2", "note", "Two", {}, 1, 2}));
    EXPECT_TRUE(manager.saveNode({"n1", "other", "Uno", {{"tag", "x"}}, 9, 3.25}));
    EXPECT_TRUE(manager.saveEdge({"e1", "n1", "n2", "links", {{"w", "1"}}, 5}));
    const auto nodes = manager.fetchNodes();
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].type, "note") << "type and creation stay";
    EXPECT_EQ(nodes[0].name, "Uno");
    EXPECT_EQ(nodes[0].createdAt, 1.5);
    EXPECT_EQ(nodes[0].updatedAt, 3.25);
    EXPECT_EQ(nodes[0].properties, (DatabaseManager::Properties{{"tag", "x"}}));
    ASSERT_EQ(manager.fetchEdges().size(), 1u);
    EXPECT_TRUE(manager.deleteNode("n2"));
    EXPECT_TRUE(manager.fetchEdges().empty());
}

TEST_F(DatabaseManagerTest, ContextAndKnowledgeReplaceWhatWasThere) {
    DatabaseManager manager(dependencies());
    manager.open();
    EXPECT_EQ(manager.fetchMCPContext(), std::nullopt);
    EXPECT_TRUE(manager.updateMCPContext({.project = "p", .topic = "t"}));
    EXPECT_TRUE(manager.updateMCPContext({.project = "q"}));
    EXPECT_EQ(manager.fetchMCPContext()->at("project"), "q");
    EXPECT_EQ(manager.fetchMCPContext()->at("topic"), "");
    EXPECT_TRUE(manager.insertMCPKnowledge("k", "v1", "c", "tag"));
    EXPECT_TRUE(manager.insertMCPKnowledge("k", "v2", "c", std::nullopt));
    ASSERT_EQ(manager.fetchAllMCPKnowledge().size(), 1u);
    EXPECT_EQ(manager.fetchAllMCPKnowledge().front().at("value_encrypted"), "v2");
}

TEST_F(DatabaseManagerTest, TwoStartsAtOnceSeedOneSet) {
    std::barrier together(2);
    const auto start = [&] {
        ThreadQueue ownQueue(DatabaseManager::queueLabel);
        ownQueue.start();
        DatabaseManager manager(
            {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = ownQueue, .log = log});
        together.arrive_and_wait();
        manager.open();
        EXPECT_TRUE(manager.isPersistent());
        EXPECT_EQ(manager.fetchRulesConfig().size(), 18u);
    };
    std::thread other(start);
    start();
    other.join();
    EXPECT_EQ(seededLines(log), 18);
}
} // namespace
} // namespace snipwren
