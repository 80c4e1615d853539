#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"
#include "base/SerialQueue.h"
#include "context/graph/KnowledgeStore.h"

struct sqlite3;

namespace snipwren {
class FileIO;
class Log;
class UserDefaults;
struct Paths;

/// Keeps the full-text index of the user's note folders. The index belongs to the database queue. A rebuild runs on the
/// rebuild queue, into a file of its own that replaces the index when it is complete: until then searches answer from
/// the previous index, and a rebuild that is stopped, killed or fails changes nothing. Published state changes on the
/// main queue only and is read there.
class SecondBrainIndexer {
public:
    static constexpr const char* queueLabel = "com.snipwren.knowledgeDatabaseQueue";
    static constexpr const char* rebuildQueueLabel = "com.snipwren.knowledgeRebuildQueue";
    static constexpr const char* foldersKey = "knowledgeFolders";

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        UserDefaults& defaults;
        const Clock& clock;
        SerialQueue& databaseQueue;
        SerialQueue& rebuildQueue;
        SerialQueue& mainQueue;
        Log& log;
        /// Threads that read notes during a rebuild.
        unsigned readers = 2;
    };
    struct State {
        bool isIndexing = false;
        std::optional<TimePoint> lastIndexedTime;
        std::int64_t documentCount = 0;
        /// Of the running rebuild; the total is 0 while the folders are being listed.
        std::size_t filesDone = 0;
        std::size_t filesTotal = 0;
    };
    /// How a rebuild ended: notes in the index, files that were left out (each is named in the log).
    struct Summary {
        std::int64_t documents = 0;
        std::size_t leftOut = 0;
    };
    using Progress = std::function<void(std::size_t done, std::size_t total)>;

    explicit SecondBrainIndexer(const Dependencies& dependencies);
    /// Stops a running rebuild and waits for its end.
    ~SecondBrainIndexer();

    /// Opens the index, or an empty one in memory when the file cannot be used. Blocks.
    void open();

    /// As stored; paths as the user chose them, made absolute.
    std::vector<std::string> indexedFolders() const;
    /// False when the folder is already in the list. The error is a sentence for the user.
    Result<bool, std::string> addFolder(const std::string& path);
    /// False when the folder is not in the list.
    Result<bool, std::string> removeFolder(const std::string& path);
    /// The list alone, for programs that rebuild by themselves.
    Result<bool, std::string> listFolder(const std::string& path);
    Result<bool, std::string> unlistFolder(const std::string& path);

    /// A rebuild that is running is stopped in favour of the new one.
    void triggerAsyncReindex();
    void cancelReindex();
    /// Blocks; not on one of this object's queues, except the rebuild queue. The error is a sentence for the user.
    Result<Summary, std::string> rebuildIndex(std::stop_token stop, const Progress& progress = {});

    /// The content is stored unchanged. The document stays until the next rebuild begins.
    void indexFileDirectly(const std::string& title, const std::string& content, const std::string& path,
                           const std::string& source);

    /// On the database queue only: the handle changes when a rebuild ends.
    sqlite3* getDatabasePointer();
    SerialQueue& getDatabaseQueue() { return databaseQueue_; }
    /// On the database queue only: the index as it stands, after taking over what another program has built.
    KnowledgeStore& store();
    /// On the database queue only: grows whenever the index has changed.
    std::uint64_t generation();

    /// Main queue only.
    const State& state() const { return published_->state; }
    bool isIndexing() const { return state().isIndexing; }
    std::optional<TimePoint> lastIndexedTime() const { return state().lastIndexedTime; }
    std::int64_t documentCount() const { return state().documentCount; }
    /// Called on the main queue after every change of the state.
    void onChange(std::function<void()> observer);

private:
    /// Outlives the object in tasks that still wait on the main queue.
    struct Published {
        State state;
        std::function<void()> observer;
    };
    struct Build;

    void openOnQueue();
    KnowledgeStore openInMemory();
    void publish(std::function<void(State&)> change);
    void publishCount(bool ended);
    Result<Summary, std::string> build(const std::stop_token& stop, const Progress& progress);
    Result<void, std::string> install(Build& build);
    bool insertOnQueue(KnowledgeStore& store, const KnowledgeDocument& document);
    std::string absolute(const std::string& path) const;

    FileIO& files_;
    UserDefaults& defaults_;
    const Clock& clock_;
    SerialQueue& databaseQueue_;
    SerialQueue& rebuildQueue_;
    SerialQueue& mainQueue_;
    Log& log_;
    const unsigned readers_;
    const std::string home_;
    const std::string folder_;
    const std::string path_;
    const std::shared_ptr<Published> published_;

    // Database queue.
    std::optional<KnowledgeStore> store_;
    std::uint64_t generation_ = 1;
    std::int64_t dataVersion_ = 0;
    bool building_ = false;
    std::vector<KnowledgeDocument> addedWhileBuilding_;

    std::mutex requestMutex_;
    std::stop_source request_;
    int pending_ = 0;
    std::mutex listMutex_;
};
} // namespace snipwren
