#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/FileIO.h"
#include "base/ManualClock.h"
#include "hosts/linux/desktop/BoundedProcess.h"
#include "hosts/linux/desktop/DesktopEventStore.h"
#include "support/PrivateBus.h"

namespace snipwren {
namespace {
using std::chrono::milliseconds;

struct EventServices : testing::Test {
    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    UserDefaults defaults{files, paths.defaultsFile};
    ManualClock clock{TimePoint(std::chrono::seconds(1'800'000'000))};
    Calendar calendar = *Calendar::make("Europe/Berlin", "en_GB");
    VdirEventStore folders{{files, paths, defaults, calendar, clock}};

    std::string script(const std::string& body) {
        const std::string path = folder.file("helper");
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        ::chmod(path.c_str(), 0755);
        return path;
    }
    EdsEventStore storeWith(const std::string& helper, milliseconds limit = std::chrono::seconds(20)) {
        return EdsEventStore({calendar, clock, helper, limit});
    }
};
} // namespace

TEST_F(EventServices, AHelperThatHangsIsKilledWithItsChildren) {
    const std::string hanging = script("sleep 1000 & echo $! > " + folder.file("child") + "\nwait");
    const auto outcome = BoundedProcess::run({hanging}, "", milliseconds(500), {});
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error().description, "The program " + hanging + " did not end in time.");
    pid_t child = 0;
    std::ifstream(folder.file("child")) >> child;
    ASSERT_GT(child, 0);
    // A killed process may take a moment to end, and to be reaped by whoever inherited it.
    std::string state;
    for (int i = 0; i < 1000; ++i) {
        state.clear();
        std::ifstream status("/proc/" + std::to_string(child) + "/stat");
        status >> state >> state >> state;
        if (state.empty() || state == "Z" || state == "X") break;
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_TRUE(state.empty() || state == "Z" || state == "X") << state;
    EdsEventStore store = storeWith(hanging, milliseconds(300));
    const auto list = store.defaultList(EventEntity::event, {});
    ASSERT_FALSE(list);
    EXPECT_EQ(list.error().description.find("The calendar service does not answer."), 0U) << list.error().description;
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_FALSE(BoundedProcess::run({hanging}, "", std::chrono::hours(1), stopped.get_token()));
}

TEST_F(EventServices, InputOutputAndFailuresComeThrough) {
    const std::string input(300'000, 'x');
    const auto echoed = BoundedProcess::run({"/bin/cat"}, input, std::chrono::seconds(20), {});
    ASSERT_TRUE(echoed);
    EXPECT_EQ(echoed->output, input);
    // One that does not read its input is no fault and raises no signal.
    const auto deaf = BoundedProcess::run({script("exit 7")}, input, std::chrono::seconds(20), {});
    ASSERT_TRUE(deaf);
    EXPECT_EQ(deaf->status, 7);
    EXPECT_FALSE(BoundedProcess::run({folder.file("missing")}, "", std::chrono::seconds(20), {}));
}

TEST_F(EventServices, TheHelpersAnswersBecomeTheDocumentedOnes) {
    EXPECT_FALSE(*storeWith(script("exit 3")).defaultList(EventEntity::reminder, {})) << "no default list";
    EXPECT_FALSE(*storeWith(script("exit 4")).defaultList(EventEntity::event, {})) << "a read-only calendar";
    const auto list = *storeWith(script("echo uid; echo Personal")).defaultList(EventEntity::event, {});
    EXPECT_EQ(list, (EventList{"uid", "Personal"}));
    EdsEventStore broken = storeWith(script("echo warning >&2; echo 'The disk is full' >&2; exit 1"));
    const auto saved = broken.save(Reminder{"milk", {}, {}}, *list, "uid", {});
    ASSERT_FALSE(saved);
    EXPECT_EQ(saved.error().description, "The calendar service refused the request: The disk is full. To keep items in "
                                         "files instead: snipwren config set eventStore vdir");
    const auto missing = storeWith(script("exit 5")).remove(EventEntity::event, "list", "uid", {});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().description, EventStoreError::missing(EventEntity::event).description);
}

TEST_F(EventServices, TheSettingChoosesTheStore) {
    PrivateBus bus; // Without the service.
    EdsEventStore service = storeWith(script("exit 3"));
    DesktopEventStore store(folders, service, defaults);
    EXPECT_FALSE(service.isAvailable());
    EXPECT_FALSE(service.ringsAlarms());
    EXPECT_EQ(store.revealPath(EventEntity::event), folders.revealPath(EventEntity::event));
    const auto folderList = *store.defaultList(EventEntity::event, {});
    ASSERT_TRUE(store.save(CalendarEvent{"x", clock.now(), clock.now()}, *folderList, "uid", {}));
    ASSERT_TRUE(defaults.set(DesktopEventStore::storeSetting, "eds"));
    EXPECT_TRUE(store.remove(EventEntity::event, folderList->id, "uid", {}))
        << "the store that has it, not the setting";
    EXPECT_FALSE(*store.defaultList(EventEntity::reminder, {})) << "asked for by name, and absent";
    ASSERT_TRUE(defaults.set(DesktopEventStore::storeSetting, "vdir"));
    EXPECT_TRUE(*store.defaultList(EventEntity::reminder, {}));
}

#ifdef EDS_PROGRAM
TEST_F(EventServices, TheRealServiceKeepsWhatWeMeant) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the calendar libraries are not built for the thread sanitizer, which reports what it cannot see";
#endif
    const std::string services = folder.file("services");
    if (std::system(("mkdir " + services + " && cp /usr/share/dbus-1/services/org.gnome.evolution.dataserver.*.service "
                     + services + " 2>/dev/null")
                        .c_str())
        != 0)
        GTEST_SKIP() << "Evolution Data Server is not installed";
    for (const char* name : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        ::setenv(name, folder.path().c_str(), 1);
    ::setenv("GSETTINGS_BACKEND", "memory", 1);
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // For the helper: its libraries keep things until they end.
    PrivateBus bus(services);
    EdsEventStore service = storeWith(EDS_PROGRAM, std::chrono::seconds(60));
    DesktopEventStore store(folders, service, defaults);
    ASSERT_TRUE(service.isAvailable());
    EXPECT_EQ(store.revealPath(EventEntity::event), "") << "auto takes the service";
    const TimePoint start = *calendar.resolve({2027, 3, 28, 1, 30, 0}); // The hour goes over the gap.
    for (const EventEntity entity : {EventEntity::event, EventEntity::reminder}) {
        const char* const name = entity == EventEntity::event ? "event" : "reminder";
        const std::string ours = std::string("8a6e0804-2bd0-4672-b79d-d97027f9071") + name[0];
        const auto list = store.defaultList(entity, {});
        ASSERT_TRUE(list && *list) << (list ? "none" : list.error().description);
        const auto uid =
            entity == EventEntity::event
                ? store.save(CalendarEvent{"standup, daily", start, start + std::chrono::hours(1)}, **list, ours, {})
                : store.save(Reminder{"milk; eggs", start, start}, **list, ours, {});
        ASSERT_TRUE(uid) << uid.error().description;
        EXPECT_EQ(*uid, ours);
        // Cut off before the answer came, it is saved again: nothing changes.
        const auto again = entity == EventEntity::event
                               ? store.save(CalendarEvent{"again", start, start}, **list, ours, {})
                               : store.save(Reminder{"again", {}, {}}, **list, ours, {});
        ASSERT_TRUE(again) << again.error().description;
        EXPECT_EQ(*again, ours);
        const auto shown =
            BoundedProcess::run({EDS_PROGRAM, "show", name, (*list)->id, *uid}, "", std::chrono::seconds(60), {});
        ASSERT_TRUE(shown);
        const auto expected =
            entity == EventEntity::event
                ? std::vector<std::string>{"SUMMARY:standup\\, daily", "DTSTART;TZID=Europe/Berlin:20270328T013000",
                                           "DTEND;TZID=Europe/Berlin:20270328T033000"}
                : std::vector<std::string>{"SUMMARY:milk\\; eggs", "DUE;TZID=Europe/Berlin:20270328T013000",
                                           "TRIGGER;VALUE=DATE-TIME:20270328T003000Z"};
        for (const std::string& line : expected)
            EXPECT_NE(shown->output.find(line), std::string::npos) << line << "\n" << shown->output << shown->errors;
        const auto removed = store.remove(entity, (*list)->id, *uid, {});
        EXPECT_TRUE(removed) << removed.error().description;
        const auto missing = store.remove(entity, (*list)->id, *uid, {});
        ASSERT_FALSE(missing);
        EXPECT_EQ(missing.error().description, EventStoreError::missing(entity).description);
    }
}
#endif
} // namespace snipwren
