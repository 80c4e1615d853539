#include <csignal>
#include <cstring>
#include <iostream>

#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "scheduler/SchedulerProtocol.h"
#include "scheduler/SchedulerService.h"

namespace {
using namespace snipwren;

/// Timers must work even with a store that does not: a damaged file is kept aside, and what cannot be opened at all is
/// replaced by memory.
Result<SchedulerStore, DatabaseError> openStore(FileIO& files, const Paths& paths, Log& log) {
    if (const auto made = files.createFolders(paths.applicationSupport, privateFolderMode); !made)
        log.line("❌ SchedulerStore: " + made.error().description);
    const std::string path = joinedPath(paths.applicationSupport, SchedulerProtocol::storeFile);
    auto store = SchedulerStore::open(path);
    if (!store && store.error().isDamaged()) {
        const std::string aside = path + ".damaged-" + isoUtc(SystemClock().now());
        log.line("❌ SchedulerStore: " + store.error().description + "; the file is kept as " + aside);
        if (files.rename(path, aside)) {
            (void)files.remove(path + "-wal"); // Both belong to the file that has gone.
            (void)files.remove(path + "-shm");
            store = SchedulerStore::open(path);
        }
    }
    if (store) return store;
    log.line("❌ SchedulerStore: Falling back to memory: " + store.error().description);
    return SchedulerStore::open(Database::inMemory);
}
} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::cout << "snipwren-scheduler " SNIPWREN_VERSION "\n";
        return 0;
    }
    if (argc > 1) {
        std::cerr << "usage: snipwren-scheduler [--version]\nDelivers Snipwren's timers and alarms. It is started over "
                     "the session bus when it is needed.\n";
        return std::strcmp(argv[1], "--help") == 0 ? 0 : 2;
    }
    std::signal(SIGCHLD, SIG_IGN); // Sound players are not waited for.
    std::signal(SIGHUP, SIG_IGN);  // The terminal it was started from may close.
    PosixFileIO files;
    const Paths paths = Paths::fromEnvironment(files);
    FileLog log(paths.logFile);
    auto store = openStore(files, paths, log);
    if (!store) {
        std::cerr << "snipwren-scheduler: " << store.error().description << "\n";
        return 1;
    }
    const SystemSchedulerClocks clocks;
    ProgramSoundPlayer sound;
    SchedulerService service({*store, clocks, sound, log});
    if (const auto started = service.start(SchedulerProtocol::busName(paths)); !started) {
        if (started.error().alreadyRunning) return 0;
        std::cerr << "snipwren-scheduler: " << started.error().description << "\n";
        return 1;
    }
    service.run();
    return 0;
}
