#include "context/notes/SecondBrainIndexer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "base/UserDefaults.h"
#include "context/notes/NoteReader.h"
#include "context/notes/RebuildLock.h"

namespace snipwren {
namespace {
constexpr std::size_t progressStep = 64;
constexpr const char* stopped = "The rebuild was stopped. The previous index is unchanged.";

std::string unchanged(const std::string& reason) {
    return "The index could not be rebuilt: " + reason + ". The previous index is unchanged.";
}
} // namespace

/// A rebuild under way: the new index and where it lies.
struct SecondBrainIndexer::Build {
    std::optional<KnowledgeStore> store;
    std::string path;
};

SecondBrainIndexer::SecondBrainIndexer(const Dependencies& dependencies)
    : files_(dependencies.files),
      defaults_(dependencies.defaults),
      clock_(dependencies.clock),
      databaseQueue_(dependencies.databaseQueue),
      rebuildQueue_(dependencies.rebuildQueue),
      mainQueue_(dependencies.mainQueue),
      log_(dependencies.log),
      readers_(std::max(1u, dependencies.readers)),
      home_(dependencies.paths.home),
      folder_(dependencies.paths.applicationSupport),
      path_(joinedPath(folder_, "SnipwrenKnowledge.db")),
      published_(std::make_shared<Published>()) {}

SecondBrainIndexer::~SecondBrainIndexer() {
    cancelReindex();
    bool waits = false;
    {
        const std::lock_guard lock(requestMutex_);
        waits = pending_ > 0;
    }
    if (waits) rebuildQueue_.sync([] {});
}

void SecondBrainIndexer::open() {
    databaseQueue_.sync([this] { openOnQueue(); });
    publishCount(false);
}

void SecondBrainIndexer::openOnQueue() {
    if (auto made = files_.createFolders(folder_, privateFolderMode); !made) {
        log_.line("❌ SQLite Error: Application support directory not found.");
        store_ = openInMemory();
        return;
    }
    log_.line("📁 SnipwrenKnowledge.db Path: " + path_);
    auto opened = KnowledgeStore::open(path_);
    if (opened) {
        store_ = std::move(*opened);
    } else {
        log_.line(opened.error().stage == KnowledgeStore::OpenError::Stage::tables
                      ? "❌ SQLite FTS5 Error: " + opened.error().cause.description
                      : "❌ SQLite Error: Failed to open SnipwrenKnowledge.db. Falling back to in-memory database.");
        store_ = openInMemory();
    }
    ++generation_;
}

KnowledgeStore SecondBrainIndexer::openInMemory() {
    auto opened = KnowledgeStore::open(Database::inMemory);
    if (opened) return std::move(*opened);
    // Without memory for an empty database nothing in this program works any more.
    log_.line("❌ SQLite FTS5 Error: " + opened.error().cause.description);
    std::abort();
}

KnowledgeStore& SecondBrainIndexer::store() {
    if (!store_ || (store_->path() == path_ && store_->hasMoved())) openOnQueue();
    return *store_;
}

std::uint64_t SecondBrainIndexer::generation() {
    KnowledgeStore& current = store();
    // Grows with the commits of other programs only; our own are counted where they happen.
    if (auto statement = current.database().prepare("PRAGMA data_version;")) {
        if (const auto row = statement->step(); row && *row)
            if (const std::int64_t version = statement->integer(0); std::exchange(dataVersion_, version) != version)
                ++generation_;
    }
    return generation_;
}

sqlite3* SecondBrainIndexer::getDatabasePointer() { return store().database().handle(); }

std::vector<std::string> SecondBrainIndexer::indexedFolders() const {
    return defaults_.strings(foldersKey).value_or(std::vector<std::string>());
}

std::string SecondBrainIndexer::absolute(const std::string& path) const {
    std::error_code ignored;
    const std::string expanded = expandedTilde(trimmed(path), home_);
    std::string full = std::filesystem::absolute(expanded, ignored).lexically_normal().string();
    while (full.size() > 1 && full.back() == '/') full.pop_back();
    return full;
}

Result<bool, std::string> SecondBrainIndexer::listFolder(const std::string& path) {
    const std::string folder = absolute(path);
    if (trimmed(path).empty() || !files_.isFolder(folder))
        return unexpected("\"" + path + "\" does not exist or is not a folder. Choose an existing folder.");
    if (const auto names = files_.list(folder); !names) return unexpected(names.error().description);
    const std::lock_guard lock(listMutex_);
    std::vector<std::string> folders = indexedFolders();
    std::error_code ignored;
    for (const std::string& known : folders)
        if (absolute(known) == folder || std::filesystem::equivalent(absolute(known), folder, ignored)) return false;
    folders.push_back(folder);
    if (auto written = defaults_.set(foldersKey, folders); !written) return unexpected(written.error().description);
    return true;
}

Result<bool, std::string> SecondBrainIndexer::unlistFolder(const std::string& path) {
    const std::string folder = absolute(path);
    const std::lock_guard lock(listMutex_);
    std::vector<std::string> folders = indexedFolders();
    const auto removed =
        std::erase_if(folders, [&](const std::string& known) { return known == path || absolute(known) == folder; });
    if (removed == 0) return false;
    if (auto written = defaults_.set(foldersKey, folders); !written) return unexpected(written.error().description);
    return true;
}

Result<bool, std::string> SecondBrainIndexer::addFolder(const std::string& path) {
    auto added = listFolder(path);
    if (added && *added) triggerAsyncReindex();
    return added;
}

Result<bool, std::string> SecondBrainIndexer::removeFolder(const std::string& path) {
    auto removed = unlistFolder(path);
    if (removed && *removed) triggerAsyncReindex();
    return removed;
}

void SecondBrainIndexer::onChange(std::function<void()> observer) { published_->observer = std::move(observer); }

void SecondBrainIndexer::publish(std::function<void(State&)> change) {
    mainQueue_.async([published = published_, change = std::move(change)] {
        change(published->state);
        if (published->observer) published->observer();
    });
}

void SecondBrainIndexer::publishCount(bool ended) {
    struct Found {
        std::int64_t count = 0;
        std::optional<TimePoint> builtAt;
    };
    const Found found = databaseQueue_.call([this] {
        KnowledgeStore& current = store();
        return Found{current.count().value_or(0), current.builtAt()};
    });
    publish([found, ended](State& state) {
        state.documentCount = found.count;
        if (found.builtAt) state.lastIndexedTime = found.builtAt;
        if (ended) state.isIndexing = false;
    });
}

void SecondBrainIndexer::cancelReindex() {
    const std::lock_guard lock(requestMutex_);
    request_.request_stop();
}

void SecondBrainIndexer::triggerAsyncReindex() {
    std::stop_token stop;
    {
        const std::lock_guard lock(requestMutex_);
        request_.request_stop();
        request_ = std::stop_source();
        stop = request_.get_token();
        ++pending_;
    }
    publish([](State& state) {
        state.isIndexing = true;
        state.filesDone = state.filesTotal = 0;
    });
    rebuildQueue_.async([this, stop] {
        const auto rebuilt = rebuildIndex(stop, [this](std::size_t done, std::size_t total) {
            publish([done, total](State& state) {
                state.filesDone = done;
                state.filesTotal = total;
            });
        });
        if (!rebuilt && !stop.stop_requested()) log_.line("❌ SecondBrainIndexer: " + rebuilt.error());
        bool last = false;
        {
            const std::lock_guard lock(requestMutex_);
            last = --pending_ == 0;
        }
        if (last) publishCount(true);
    });
}

Result<SecondBrainIndexer::Summary, std::string> SecondBrainIndexer::rebuildIndex(std::stop_token stop,
                                                                                  const Progress& progress) {
    // Another program's rebuild is waited for: its folders may differ from ours by now.
    const RebuildLock turn(joinedPath(folder_, "SnipwrenKnowledge.lock"), stop);
    if (stop.stop_requested()) return unexpected(std::string(stopped));
    databaseQueue_.sync([this] {
        (void)store();
        building_ = true;
        addedWhileBuilding_.clear();
    });
    auto summary = build(stop, progress);
    databaseQueue_.sync([this] {
        building_ = false;
        addedWhileBuilding_.clear();
    });
    return summary;
}

Result<SecondBrainIndexer::Summary, std::string> SecondBrainIndexer::build(const std::stop_token& stop,
                                                                           const Progress& progress) {
    Build build;
    build.path = path_ + ".rebuild";
    // What a killed rebuild left behind; first the journal, which must not be applied to a new file.
    (void)files_.remove(build.path + "-journal");
    (void)files_.remove(build.path);
    auto opened = KnowledgeStore::open(build.path);
    if (!opened) { // A folder that cannot be written to: the index in memory serves until the program ends.
        log_.line("❌ SQLite Error: Failed to open SnipwrenKnowledge.db. Falling back to in-memory database.");
        build.path = Database::inMemory;
        opened = openInMemory();
    }
    build.store = std::move(*opened);
    const auto fail = [&](const std::string& sentence) {
        build.store.reset();
        if (build.path != Database::inMemory) {
            (void)files_.remove(build.path + "-journal");
            (void)files_.remove(build.path);
        }
        return unexpected(sentence);
    };
    if (auto begun = build.store->beginLoad(); !begun) return fail(unchanged(begun.error().description));

    Summary summary;
    const std::vector<std::string> folders = indexedFolders();
    std::vector<std::string> paths;
    for (const std::string& folder : folders) paths.push_back(absolute(folder));
    const std::vector<NoteFile> notes =
        NoteFolderWalk::collect(paths, stop, [&](const std::string& path, const std::string& reason) {
            ++summary.leftOut;
            log_.line("Failed to index file \"" + path + "\": " + reason);
        });
    NoteReader reader(files_, notes);
    reader.start(readers_);
    std::size_t done = 0;
    if (progress) progress(0, notes.size());
    while (auto note = reader.next(stop)) {
        if (!note->document) {
            ++summary.leftOut;
            log_.line("Failed to index file \"" + notes[done].path + "\": " + note->problem);
        } else if (auto inserted = build.store->insert(*note->document); !inserted) {
            log_.line("❌ SQLite FTS Insert Error: " + inserted.error().description);
            return fail(unchanged(inserted.error().description));
        } else {
            ++summary.documents;
        }
        if (++done % progressStep == 0 && progress) progress(done, notes.size());
    }
    if (stop.stop_requested()) return fail(stopped);
    if (progress) progress(notes.size(), notes.size());
    if (auto finished = build.store->finishLoad(clock_.now()); !finished)
        return fail(unchanged(finished.error().description));
    if (auto installed = install(build); !installed) return fail(installed.error());
    return summary;
}

Result<void, std::string> SecondBrainIndexer::install(Build& build) {
    const bool inFile = build.path != Database::inMemory;
    if (inFile) {
        build.store.reset(); // Closed before the file moves.
        // An empty append that flushes: a power cut after the exchange must find the whole file on the disk.
        FileIO::AppendOptions flush;
        flush.durable = true;
        if (auto flushed = files_.append(build.path, {}, flush); !flushed)
            return unexpected(unchanged(flushed.error().description));
    }
    // Closed on this thread: the system takes its time to free a large file that has no name any more.
    std::optional<KnowledgeStore> replaced;
    return databaseQueue_.call([&]() -> Result<void, std::string> {
        if (!inFile) {
            store_ = std::move(*build.store);
            build.store.reset();
        } else {
            // No other program may be between the parts of a write: its journal would be taken for the new file's.
            if (KnowledgeStore& current = store(); current.path() == path_)
                if (auto locked = current.lockOut(); !locked) return unexpected(unchanged(locked.error().description));
            if (auto moved = files_.rename(build.path, path_); !moved) {
                store_.reset();
                openOnQueue();
                return unexpected(unchanged(moved.error().description));
            }
            replaced = std::exchange(store_, std::nullopt);
            openOnQueue();
        }
        ++generation_;
        for (const KnowledgeDocument& document : addedWhileBuilding_) insertOnQueue(*store_, document);
        addedWhileBuilding_.clear();
        return {};
    });
}

bool SecondBrainIndexer::insertOnQueue(KnowledgeStore& store, const KnowledgeDocument& document) {
    const auto inserted = store.insert(document);
    if (!inserted) log_.line("❌ SQLite FTS Insert Error: " + inserted.error().description);
    ++generation_;
    return inserted.has_value();
}

void SecondBrainIndexer::indexFileDirectly(const std::string& title, const std::string& content,
                                           const std::string& path, const std::string& source) {
    const KnowledgeDocument document{title, content, path, source};
    databaseQueue_.sync([&] {
        insertOnQueue(store(), document);
        if (building_) addedWhileBuilding_.push_back(document); // Or the index that replaces this one would lack it.
    });
    publishCount(false);
}
} // namespace snipwren
