// The second brain on a generated collection of 40,000 notes: rebuilding it against the bare inserts of the same texts,
// searches while it stands and while it is rebuilt. SNIPWREN_NOTES sets another size.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include "NoteCollection.h"
#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/ThreadQueue.h"
#include "base/UserDefaults.h"
#include "context/graph/KnowledgeSuggestionEngine.h"
#include "context/notes/NoteReader.h"
#include "context/notes/SecondBrainIndexer.h"

namespace snipwren {
namespace {
using Milliseconds = std::chrono::duration<double, std::milli>;

double cpuSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double threadMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

/// The process's memory since the last reset, in megabytes.
double peakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) / 1024;
    return 0;
}
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

/// Everything around one index in a scratch folder.
struct Brain {
    explicit Brain(std::size_t count) {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(notes);
        bytes = collection.write(notes, count);
        database.start();
        rebuild.start();
        indexer.open();
        (void)indexer.listFolder(notes);
    }
    ~Brain() { std::filesystem::remove_all(root); }

    const std::string root =
        (std::filesystem::temp_directory_path() / ("snipwren-bench-" + std::to_string(::getpid()))).string();
    const std::string notes = root + "/notes";
    NoteCollection collection;
    std::size_t bytes = 0;
    PosixFileIO files;
    Paths paths = Paths::under(root + "/home");
    UserDefaults defaults{files, paths.defaultsFile};
    SystemClock clock;
    SystemRandom random;
    MemoryLog log;
    ThreadQueue main{"main", ThreadQueue::Runs::inRunCall};
    ThreadQueue database{SecondBrainIndexer::queueLabel};
    ThreadQueue rebuild{SecondBrainIndexer::rebuildQueueLabel};
    SecondBrainIndexer indexer{{files, paths, defaults, clock, database, rebuild, main, log, 2}};
    KnowledgeSuggestionEngine engine{indexer, random};
};

std::size_t wantedNotes() {
    const char* const text = std::getenv("SNIPWREN_NOTES");
    return text ? std::strtoul(text, nullptr, 10) : 40'000;
}

Brain& brain() {
    static Brain instance(wantedNotes());
    return instance;
}

std::vector<KnowledgeDocument> strippedNotes(Brain& brain, std::size_t count) {
    const auto files = NoteFolderWalk::collect({brain.notes}, {}, [](const std::string&, const std::string&) {});
    NoteReader reader(brain.files, files);
    reader.start(2);
    std::vector<KnowledgeDocument> documents;
    while (auto note = reader.next({})) {
        if (documents.size() == count) break;
        documents.push_back(std::move(*note->document));
    }
    return documents;
}

/// The same texts into the same table in one transaction, without all the rest: seconds of wall and processor time.
std::pair<double, double> bareInserts(Brain& brain, const std::vector<KnowledgeDocument>& documents) {
    const std::string path = brain.root + "/bare.db";
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(path + suffix);
    auto database = Database::open(path).value();
    const auto start = std::chrono::steady_clock::now();
    const double cpu = cpuSeconds();
    (void)database.execute("CREATE VIRTUAL TABLE IF NOT EXISTS knowledge_fts USING fts5(\n    title, content, path, "
                           "source, tokenize='porter unicode61'\n);");
    const auto done = database.transaction([&]() -> Result<void, DatabaseError> {
        for (const KnowledgeDocument& document : documents)
            if (auto inserted =
                    database.run("INSERT INTO knowledge_fts (title, content, path, source) VALUES (?, ?, ?, ?);",
                                 document.title, document.content, document.path, document.source);
                !inserted)
                return inserted;
        return {};
    });
    if (!done) std::abort();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), cpuSeconds() - cpu};
}

/// Bar: at most 1.3 times the bare inserts, below 200 MB.
void rebuild(benchmark::State& state) {
    Brain& it = brain();
    double rebuildWall = 0, rebuildCpu = 0, bareWall = 0, bareCpu = 0, peak = 0;
    for (auto _ : state) {
        resetPeak();
        const auto start = std::chrono::steady_clock::now();
        const double cpu = cpuSeconds();
        const auto summary = it.indexer.rebuildIndex({});
        rebuildWall += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        rebuildCpu += cpuSeconds() - cpu;
        peak = std::max(peak, peakMegabytes());
        if (!summary) state.SkipWithError(summary.error().c_str());
        state.PauseTiming();
        {
            const auto documents = strippedNotes(it, wantedNotes());
            const auto [wall, cpuTime] = bareInserts(it, documents);
            bareWall += wall;
            bareCpu += cpuTime;
        }
        state.ResumeTiming();
    }
    state.counters["MB"] = static_cast<double>(it.bytes) / 1e6;
    state.counters["ratio_wall"] = rebuildWall / bareWall;
    state.counters["ratio_cpu"] = rebuildCpu / bareCpu;
    state.counters["bare_s"] = bareWall / static_cast<double>(state.iterations());
    state.counters["peak_MB"] = peak;
}
BENCHMARK(rebuild)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();

/// Bar: the cost of one note is the same in a small and a large collection.
void rebuildPerNote(benchmark::State& state) {
    Brain& it = brain();
    const auto count = static_cast<std::size_t>(state.range(0));
    const std::string part = it.root + "/part";
    std::filesystem::remove_all(part);
    it.collection.write(part, count);
    (void)it.defaults.set(SecondBrainIndexer::foldersKey, std::vector<std::string>{part});
    for (auto _ : state)
        if (!it.indexer.rebuildIndex({})) state.SkipWithError("the rebuild failed");
    (void)it.defaults.set(SecondBrainIndexer::foldersKey, std::vector<std::string>{it.notes});
    std::filesystem::remove_all(part);
    state.counters["us_per_note"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(count) / 1e6,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(rebuildPerNote)->Arg(1000)->Arg(10000)->Arg(40000)->Unit(benchmark::kMillisecond)->UseRealTime();

void report(benchmark::State& state, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    state.counters["median_ms"] = times[times.size() / 2];
    state.counters["p99_ms"] = times[times.size() * 99 / 100];
    state.counters["max_ms"] = times.back();
    state.counters["queries"] = static_cast<double>(times.size());
}

template <class MakeQuery>
void searches(benchmark::State& state, MakeQuery makeQuery, bool warm) {
    Brain& it = brain();
    if (!warm || it.database.call([&] { return it.indexer.store().count().value_or(0); }) == 0)
        if (!it.indexer.rebuildIndex({})) state.SkipWithError("the rebuild failed");
    std::vector<double> times;
    std::size_t n = 0;
    for (auto _ : state) {
        const std::string query = makeQuery(it.collection, n++);
        // The queue's thread does the work; its own clock leaves out what other programs do to the machine.
        const double start = it.database.call(threadMilliseconds);
        benchmark::DoNotOptimize(it.engine.search(query));
        times.push_back(it.database.call(threadMilliseconds) - start);
    }
    report(state, std::move(times));
}

std::string rareQuery(const NoteCollection& collection, std::size_t n) {
    // Three rare words that occur together: picked from one note.
    std::string query;
    int taken = 0;
    for (const char* const separators = " \n"; taken < 3; n += 100'003) {
        const std::string text = collection.note(n % wantedNotes());
        query.clear();
        taken = 0;
        for (std::size_t at = 0; at < text.size() && taken < 3;) {
            const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
            const std::string word = text.substr(at, end - at);
            if (word.size() > 7 && word.find_first_of("*[]_#.") == std::string::npos) {
                query += word + " ";
                ++taken;
            }
            at = end + 1;
        }
    }
    return query;
}

std::string commonQuery(const NoteCollection& collection, std::size_t n) {
    const auto& words = collection.commonWords();
    const std::size_t size = words.size();
    return words[n * 7 % size] + " " + words[(n * 11 + n / size + 1) % size] + " " + words[(n * 13 + 5) % size];
}

/// Bar: median below 1 ms.
void searchRareWords(benchmark::State& state) { searches(state, rareQuery, true); }
BENCHMARK(searchRareWords)->Iterations(1000)->Unit(benchmark::kMillisecond);

/// Bar: p99 below 50 ms. Begins right after a rebuild, with nothing kept.
void searchCommonWords(benchmark::State& state) { searches(state, commonQuery, false); }
BENCHMARK(searchCommonWords)->Iterations(1000)->Unit(benchmark::kMillisecond);

/// Bar: no search waits more than 50 ms for a running rebuild. Wall time of rare-word searches while one runs.
void searchDuringRebuild(benchmark::State& state) {
    Brain& it = brain();
    (void)it.indexer.rebuildIndex({});
    for (std::size_t n = 0; n < 500; ++n) benchmark::DoNotOptimize(it.engine.search(rareQuery(it.collection, n)));
    std::vector<double> times;
    for (auto _ : state) {
        std::atomic<bool> done = false;
        std::jthread other([&] {
            (void)it.indexer.rebuildIndex({});
            done = true;
        });
        for (std::size_t n = 0; !done; ++n) {
            const std::string query = rareQuery(it.collection, n % 500);
            const auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(it.engine.search(query));
            times.push_back(Milliseconds(std::chrono::steady_clock::now() - start).count());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    report(state, std::move(times));
}
BENCHMARK(searchDuringRebuild)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
