// The recovery log, the history and the privacy firewall against their bars; each beside a plain reference.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <benchmark/benchmark.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/UserDefaults.h"
#include "records/CaptureHistoryStore.h"
#include "records/FallbackCaptureLogger.h"
#include "store/DatabaseManager.h"
#include "store/PrivacyFirewall.h"

namespace snipwren {
namespace {
/// A store in a folder of its own; its queue runs on the calling thread, so that its work is in the measured time.
struct Store {
    Store() {
        manager.open();
        history.open();
        firewall.primeExcludedApps();
    }
    ~Store() { std::filesystem::remove_all(folder); }

    static std::string made() {
        std::string path = (std::filesystem::temp_directory_path() / "snipwren-bench-XXXXXX").string();
        if (!::mkdtemp(path.data())) std::abort();
        return path;
    }
    const std::string folder = made();
    PosixFileIO files;
    Paths paths = Paths::under(folder);
    ManualClock clock{fromSecondsSince1970(1'741'079'702)};
    UserDefaults defaults{files, paths.defaultsFile};
    MemoryLog log;
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    ManualQueue queue{DatabaseManager::queueLabel, clock};
    DatabaseManager manager{
        {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = queue, .log = log}};
    CaptureHistoryStore history{{.database = manager, .clock = clock, .notifications = notifications, .log = log}};
    FallbackCaptureLogger recoveryLog{files, paths, clock, notifications};
    PrivacyFirewall firewall{{.database = manager, .clock = clock, .refreshQueue = queue}};
};

/// The given share of the sorted times, in microseconds.
double percentile(std::vector<double>& times, double share) {
    std::ranges::sort(times);
    return times[std::min(times.size() - 1, static_cast<std::size_t>(share * static_cast<double>(times.size())))];
}

/// Processor time of this thread, in microseconds: what the work costs however busy the machine is.
double processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

template <class Work>
void timeEach(benchmark::State& state, const Work& work) {
    std::vector<double> times;
    std::vector<double> processorTimes;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const double processorStart = processorTime();
        work();
        processorTimes.push_back(processorTime() - processorStart);
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    state.counters["p99_cpu_us"] = percentile(processorTimes, 0.99);
    state.counters["p50_us"] = percentile(times, 0.5);
    state.counters["p99_us"] = percentile(times, 0.99);
}

void fill(Store& store) {
    store.manager.performRaw([&](Database& database) {
        (void)database.transaction([&]() -> Result<void, DatabaseError> {
            for (int i = 0; i < CaptureHistoryStore::maxEntries; ++i)
                (void)database.run("INSERT INTO capture_history (target, text, created_at) VALUES (?, ?, ?);", "note",
                                   "a text of the usual length, number " + std::to_string(i),
                                   secondsSince1970(store.clock.now()) - i);
            return {};
        });
    });
}

// Bar: p99_us below 5000.
void recordOnAFullTable(benchmark::State& state) {
    Store store;
    fill(store);
    timeEach(state, [&] {
        store.clock.advance(std::chrono::seconds(1));
        store.history.record("note", "a text of the usual length", true);
        store.mainQueue.runReady();
    });
}
BENCHMARK(recordOnAFullTable)->Unit(benchmark::kMicrosecond)->Iterations(2000);

void insertAloneAsReference(benchmark::State& state) {
    Store store;
    fill(store);
    timeEach(state, [&] {
        store.manager.performRaw([&](Database& database) {
            (void)database.run("INSERT INTO capture_history (target, text, created_at) VALUES (?, ?, ?);", "note",
                               "a text of the usual length", 1.0);
        });
    });
}
BENCHMARK(insertAloneAsReference)->Unit(benchmark::kMicrosecond)->Iterations(2000);

const std::string hundredCharacters =
    "Please send the minutes of 4 March to Ana, Ben and Chloe before 17:30, and book the room for 12 people";
// Every quick look finds something, so that every pattern runs, and none matches.
const std::string suspiciousCharacters =
    "AKIA sk_live_ xox mongodb+srv:// postgres:// abcdefghijklmnopqrstuvwxyz 4111 1111 1111 1112 and more..";

// Bar: p50_us below 10.
void isSafeToProcess(benchmark::State& state, const std::string& text) {
    Store store;
    timeEach(state, [&] {
        benchmark::DoNotOptimize(store.firewall.isSafeToProcess(text, "org.example.editor", std::nullopt));
    });
}
BENCHMARK_CAPTURE(isSafeToProcess, ordinary, hundredCharacters)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(isSafeToProcess, suspicious, suspiciousCharacters)->Unit(benchmark::kMicrosecond);

void patternsCompiledEachTimeAsReference(benchmark::State& state) {
    timeEach(state, [] {
        for (const char* pattern :
             {R"(\bAKIA[0-9A-Z]{16}\b)", R"(\bsk_live_[0-9a-zA-Z]{24}\b)", R"(\bxox[baprs]-[0-9a-zA-Z\-]+\b)",
              R"(mongodb\+srv:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)",
              R"(postgres:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)", R"(\b[A-Za-z0-9+/=]{20,}\b)",
              R"(\b(?:\d[\s-]*){13,19}\b)"})
            benchmark::DoNotOptimize(Regex::compile(pattern)->contains(std::string_view(hundredCharacters)));
    });
}
BENCHMARK(patternsCompiledEachTimeAsReference)->Unit(benchmark::kMicrosecond);

void isAppExcluded(benchmark::State& state) {
    Store store;
    const std::vector<std::string> names{"firefox", "firefox-esr", "org.mozilla.firefox"};
    for (auto _ : state) benchmark::DoNotOptimize(store.firewall.isAppExcluded("org.mozilla.firefox", names));
}
BENCHMARK(isAppExcluded);

void writeRecords(Store& store) {
    std::string lines;
    for (int i = 0; i < 10'000; ++i)
        lines += FallbackCaptureLogger::recordLine("call Ana \"re: Q2\"\nsecond line, number " + std::to_string(i),
                                                   "slack", "Slack not connected", store.clock.now());
    (void)store.files.writeAtomic(store.recoveryLog.logFilePath(), lines, privateFileMode);
}

// Bar: below 50 ms.
void readTenThousandRecords(benchmark::State& state) {
    Store store;
    writeRecords(store);
    for (auto _ : state) {
        const auto entries = store.recoveryLog.readEntries(10'000);
        if (entries.size() != 10'000) state.SkipWithError("records are missing");
    }
}
BENCHMARK(readTenThousandRecords)->Unit(benchmark::kMillisecond);

void getlineAsReference(benchmark::State& state) {
    Store store;
    writeRecords(store);
    for (auto _ : state) {
        std::ifstream file(store.recoveryLog.logFilePath());
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(getlineAsReference)->Unit(benchmark::kMillisecond);
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
