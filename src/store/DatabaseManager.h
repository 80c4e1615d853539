#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/Database.h"

namespace snipwren {
class Clock;
class FileIO;
class Log;
class SerialQueue;
class UserDefaults;
struct Paths;

/// Owns SnipwrenRules.db: mistake rules, excluded applications, captured texts and skeletons, field memory, the context
/// server's context and knowledge, the knowledge graph and the sync metadata. Every statement runs on its serial queue,
/// so any thread may call, except from a task of that queue. Nothing is raised to callers: a fault is logged and gives
/// an empty answer. The queue must be drained before the manager dies.
class DatabaseManager {
public:
    static constexpr const char* queueLabel = "com.snipwren.databaseQueue";
    static constexpr const char* fileName = "SnipwrenRules.db";

    /// Column name to text; NULL is empty text.
    using Row = std::map<std::string, std::string, std::less<>>;
    using Rows = std::vector<Row>;
    using OptionalText = std::optional<std::string>;
    using Properties = std::map<std::string, std::string>;
    struct Node {
        std::string id;
        std::string type;
        std::string name;
        Properties properties;
        double createdAt = 0;
        double updatedAt = 0;
    };
    struct Edge {
        std::string id;
        std::string source;
        std::string target;
        std::string relationship;
        Properties properties;
        double createdAt = 0;
    };

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        const Clock& clock;
        const UserDefaults& defaults;
        SerialQueue& queue;
        Log& log;
        Database::Options options = {};
    };
    explicit DatabaseManager(const Dependencies& dependencies);

    /// Opens the file, or a database in memory when it cannot be opened, and brings tables and seeds up to date.
    void open();
    /// False when what is written now is gone at the end of the run.
    bool isPersistent() const;

    // Primitives.
    void executeNonQuery(const std::string& sql);
    /// One statement, its arguments bound as texts; true when it ran to its end.
    bool executeNonQueryWithParams(const std::string& sql, const std::vector<std::string>& arguments);
    Rows executeQuery(const std::string& sql);
    /// Runs the block with the connection on the queue; false, without running it, when there is no database.
    bool performRaw(const std::function<void(Database&)>& block);

    // Rules and exclusions.
    Rows fetchRulesConfig();
    bool updateRuleEnabled(const std::string& id, bool isEnabled);
    std::vector<std::string> fetchExclusionList();
    Rows fetchExclusionDetails();
    bool addExclusion(const std::string& id, const std::string& category, const std::string& reasoning);
    bool deleteExclusion(const std::string& id);
    /// The names under which the excluded applications run on Linux: desktop-file ids, WM_CLASS, executables, Flatpak
    /// ids. Those of a deleted exclusion are not among them.
    std::vector<std::string> fetchExclusionIdentities();

    // Captured texts and skeletons.
    /// The new row's id; none when it could not be inserted.
    std::optional<std::int64_t> insertCapturedText(const std::string& rawText, const std::string& appBundleId,
                                                   const OptionalText& domain);
    void insertCapturedTextAsync(std::string rawText, std::string appBundleId, OptionalText domain);
    std::optional<std::int64_t> insertSkeleton(std::int64_t rawTextId, const std::string& skeletonText);
    bool incrementSkeletonCount(std::int64_t skeletonId);
    bool deleteSkeleton(std::int64_t skeletonId);
    Rows fetchAllSkeletons();
    /// Skeletons of the last 30 days that came often enough; terminals need fewer.
    Rows fetchActiveTemplates(const std::string& appBundleId);
    Rows fetchDiscoveredSkeletons();
    void clearAllHistory();

    // Field memory.
    struct FieldValue {
        std::string fieldContext;
        std::string appBundleId;
        OptionalText domain;
        OptionalText fieldLabel;
        std::string valueHash;
        std::string valueEncryptedBase64;
    };
    void insertFieldMemory(FieldValue value);
    /// At most five, the most frequent first. Without a domain those of every domain.
    Rows fetchFieldMemory(const std::string& fieldContext, const std::string& appBundleId, const OptionalText& domain);
    /// Without the values.
    Rows fetchAllFieldMemories();
    bool deleteFieldMemory(std::int64_t id);
    bool purgeOldFieldMemory(int days = 180);

    // Context server.
    struct McpContext {
        OptionalText project = {};
        OptionalText topic = {};
        OptionalText relatedNotes = {};
        OptionalText activeDecision = {};
        OptionalText metadata = {};
    };
    bool updateMCPContext(const McpContext& context);
    std::optional<Row> fetchMCPContext();
    bool insertMCPKnowledge(const std::string& key, const std::string& valueEncrypted, const std::string& context,
                            const OptionalText& tags);
    Rows fetchAllMCPKnowledge();

    // Knowledge graph.
    bool saveNode(const Node& node);
    /// With the edges at it.
    bool deleteNode(const std::string& id);
    bool saveEdge(const Edge& edge);
    bool deleteEdge(const std::string& id);
    std::vector<Node> fetchNodes();
    std::vector<Edge> fetchEdges();
    void clearKnowledgeGraph();

    // Sync metadata.
    bool saveSyncMetadata(const std::string& key, const std::string& value);
    OptionalText fetchSyncMetadata(const std::string& key);

private:
    // All of these run on the queue.
    void openOnQueue();
    Result<Database, DatabaseError> openFile(const std::string& path);
    /// Tables and seeds, all or nothing.
    Result<void, DatabaseError> bringUpToDate();
    Result<void, DatabaseError> seed();
    Result<bool, DatabaseError> has(const std::string& sql);
    Rows query(const std::string& sql);
    void nonQuery(const std::string& sql);
    Result<Statement, DatabaseError> prepare(std::string_view sql);
    Result<Statement, DatabaseError> prepareOnce(std::string_view sql);
    /// Logs the words and the fault's message; true when there is no fault.
    bool told(const Result<void, DatabaseError>& done, std::string_view words);
    static Row rowOf(Statement& statement);
    double now() const;

    template <class... Values>
    Result<void, DatabaseError> attempt(std::string_view sql, const Values&... values) {
        auto statement = prepare(sql);
        if (!statement) return unexpected(statement.error());
        statement->bindAll(values...);
        return statement->run();
    }
    /// As attempt, but logs a fault in the general words.
    template <class... Values>
    bool run(std::string_view sql, const Values&... values) {
        auto statement = prepare(sql);
        if (!statement) return told(unexpected(statement.error()), "❌ SQLite Error Prepare: ");
        statement->bindAll(values...);
        return told(statement->run(), "❌ SQLite NonQuery with Params Error: ");
    }
    /// Each row as `map` makes it; what was read so far when a fault ends the reading.
    template <class Map, class... Values>
    auto read(Result<Statement, DatabaseError> statement, std::string_view faultWords, Map map,
              const Values&... values) {
        std::vector<std::decay_t<decltype(map(std::declval<Statement&>()))>> all;
        if (!statement) {
            told(unexpected(statement.error()), faultWords);
            return all;
        }
        statement->bindAll(values...);
        while (true) {
            const auto stepped = statement->step();
            if (!stepped) told(unexpected(stepped.error()), faultWords);
            if (!stepped || !*stepped) return all;
            all.push_back(map(*statement));
        }
    }

    FileIO& files_;
    const Paths& paths_;
    const Clock& clock_;
    const UserDefaults& defaults_;
    SerialQueue& queue_;
    Log& log_;
    const Database::Options options_;
    // Only on the queue.
    std::optional<Database> database_;
    bool persistent_ = false;
};
} // namespace snipwren
