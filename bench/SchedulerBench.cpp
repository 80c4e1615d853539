// The scheduler as its clients meet it: the real program on a private session bus, its store on the real disk. Beside it
// the two things it is made of: a commit that waits for the disk, and a question to the bus itself.
#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <thread>

#include <benchmark/benchmark.h>
#include <sdbus-c++/sdbus-c++.h>

#include "base/ThreadQueue.h"
#include "hosts/linux/desktop/SchedulerNotificationCenter.h"
#include "scheduler/SchedulerProtocol.h"
#include "scheduler/SchedulerStore.h"
#include "support/FakeNotificationService.h"
#include "support/PrivateBus.h"

namespace snipwren {
namespace {
using std::chrono::hours;
using std::chrono::milliseconds;

struct Rig {
    TemporaryFolder folder;
    Paths paths = Paths::under(folder.path());
    PrivateBus bus;
    PosixFileIO files;
    UserDefaults defaults{files, paths.defaultsFile};
    SystemClock clock;
    Calendar calendar = *Calendar::make("UTC", "en_GB");
    MemoryLog log;
    ThreadQueue mainQueue{"main"};
    SchedulerNotificationCenter center{{paths, calendar, clock, mainQueue, defaults, log, SCHEDULER_PROGRAM}};
    FakeNotificationService service;
    std::unique_ptr<sdbus::IConnection> connection = sdbus::createSessionBusConnection();

    Rig() {
        (void)files.createFolders(paths.applicationSupport, privateFolderMode);
        mainQueue.start();
        (void)center.pending(); // Starts the scheduler.
    }
    ~Rig() { ::kill(process(), SIGKILL); }
    pid_t process() {
        std::uint32_t id = 0;
        sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
            ->callMethod("GetConnectionUnixProcessID")
            .onInterface("org.freedesktop.DBus")
            .withArguments(SchedulerProtocol::busName(paths))
            .storeResultsTo(id);
        return static_cast<pid_t>(id);
    }
    long status(const char* key) {
        std::ifstream file("/proc/" + std::to_string(process()) + "/status");
        std::string word;
        while (file >> word)
            if (word == key) {
                long value = 0;
                file >> value;
                return value;
            }
        return -1;
    }
    static NotificationRequest request(const std::string& id, Duration interval) {
        NotificationRequest made;
        made.identifier = id;
        made.categoryIdentifier = "SNIPWRN_TIMER";
        made.title = "tea";
        made.body = "Your timer is done";
        made.trigger = IntervalTrigger{interval};
        return made;
    }
};

double percentile(std::vector<double>& values, double which) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(which * static_cast<double>(values.size() - 1))];
}

template <class Work>
double millisecondsOf(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void BM_AddListRemove(benchmark::State& state) {
    Rig rig;
    std::vector<double> times;
    int number = 0;
    for (auto _ : state)
        times.push_back(millisecondsOf([&] {
            const std::string id = "t" + std::to_string(++number);
            (void)rig.center.add(Rig::request(id, hours(1)));
            benchmark::DoNotOptimize(rig.center.pending());
            (void)rig.center.removePending(id);
        }));
    state.counters["p50_ms_bar20"] = percentile(times, 0.5);
    state.counters["p99_ms"] = percentile(times, 0.99);
    state.counters["rss_MB_bar12"] = static_cast<double>(rig.status("VmRSS:")) / 1024;
}
BENCHMARK(BM_AddListRemove)->Unit(benchmark::kMillisecond)->Iterations(200)->UseRealTime();

void BM_ReferenceTwoDurableCommits(benchmark::State& state) {
    TemporaryFolder folder;
    auto store = std::move(*SchedulerStore::open(folder.file("reference.db")));
    StoredItem item;
    item.item.id = "x";
    std::vector<double> times;
    for (auto _ : state)
        times.push_back(millisecondsOf([&] {
            (void)store.put(item);
            (void)store.remove("x");
        }));
    state.counters["p50_ms"] = percentile(times, 0.5);
}
BENCHMARK(BM_ReferenceTwoDurableCommits)->Unit(benchmark::kMillisecond)->Iterations(200)->UseRealTime();

void BM_ReferenceThreeBusCalls(benchmark::State& state) {
    PrivateBus bus;
    const auto connection = sdbus::createSessionBusConnection();
    const auto proxy = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    for (auto _ : state)
        for (int i = 0; i < 3; ++i) {
            std::string id;
            proxy->callMethod("GetId").onInterface("org.freedesktop.DBus").storeResultsTo(id);
            benchmark::DoNotOptimize(id);
        }
}
BENCHMARK(BM_ReferenceThreeBusCalls)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ListTenThousand(benchmark::State& state) {
    Rig rig;
    for (int i = 0; i < 10'000; ++i) {
        if (!rig.center.add(Rig::request("t" + std::to_string(i), hours(1)))) return state.SkipWithError("add failed");
    }
    std::vector<double> times;
    for (auto _ : state)
        times.push_back(millisecondsOf([&] {
            const auto pending = rig.center.pending();
            if (!pending || pending->size() != 10'000) state.SkipWithError("wrong list");
        }));
    state.counters["p50_ms_bar50"] = percentile(times, 0.5);
    state.counters["rss_MB"] = static_cast<double>(rig.status("VmRSS:")) / 1024;
}
BENCHMARK(BM_ListTenThousand)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();

void BM_FiresAtItsMoment(benchmark::State& state) {
    Rig rig;
    std::vector<double> late;
    int number = 0;
    for (auto _ : state) {
        const TimePoint fires = rig.clock.now() + milliseconds(100);
        NotificationRequest request = Rig::request("t" + std::to_string(++number), milliseconds(100));
        request.userInfo["sw_fireAt"] = secondsSince1970(fires);
        (void)rig.center.add(request);
        rig.service.waitForCount(static_cast<std::size_t>(number));
        late.push_back(std::chrono::duration<double, std::milli>(rig.clock.now() - fires).count());
    }
    state.counters["late_p50_ms_bar50"] = percentile(late, 0.5);
    state.counters["late_max_ms"] = percentile(late, 1);
    // One pending and nothing to do: it must sleep.
    (void)rig.center.add(Rig::request("future", hours(1)));
    std::this_thread::sleep_for(milliseconds(300));
    const long before = rig.status("voluntary_ctxt_switches:");
    std::this_thread::sleep_for(std::chrono::seconds(5));
    state.counters["idle_wakeups_in_5s_bar0"] = static_cast<double>(rig.status("voluntary_ctxt_switches:") - before);
}
BENCHMARK(BM_FiresAtItsMoment)->Unit(benchmark::kMillisecond)->Iterations(50)->UseRealTime();
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
