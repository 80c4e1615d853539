#include "hosts/portable/VdirEventStore.h"

#include <array>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/ManualClock.h"
#include "base/Random.h"
#include "base/Text.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
struct VdirEventStoreTest : testing::Test {
    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    UserDefaults defaults{files, paths.defaultsFile};
    ManualClock clock{TimePoint(std::chrono::seconds(1'800'000'000))};
    SystemRandom random;
    Calendar calendar = *Calendar::make("Europe/Berlin", "en_GB");

    VdirEventStore storeIn(const Calendar& where) { return VdirEventStore({files, paths, defaults, where, clock}); }
    std::string output(const std::string& command) {
        std::FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
        std::string text;
        std::array<char, 4096> part{};
        while (const std::size_t count = std::fread(part.data(), 1, part.size(), pipe)) text.append(part.data(), count);
        EXPECT_EQ(::pclose(pipe), 0) << command << "\n" << text;
        return text;
    }
};

struct Case {
    const char* zone;
    CivilTime start;
    std::string title;
    /// The second of two moments with the same civil time.
    bool second = false;
};

/// What other programs must read as we meant it: odd offsets and rules, both sides of midnight, gap and overlap, and
/// titles that need escaping and folding.
const std::vector<Case>& cases() {
    static const std::vector<Case> all = [] {
        std::string longTitle;
        for (int i = 0; i < 40; ++i) longTitle += "täg€😀";
        return std::vector<Case>{
            {"UTC", {2027, 3, 1, 12, 0, 0}, "plain"},
            {"Europe/Berlin", {2027, 3, 28, 1, 30, 0}, "ends after the gap"},
            {"Europe/Berlin", {2027, 3, 28, 2, 30, 0}, "in the gap"},
            {"Europe/Berlin", {2027, 10, 31, 2, 30, 0}, "first of two"},
            {"Europe/Berlin", {2027, 10, 31, 2, 30, 0}, "second of two", true},
            {"Africa/Cairo", {2027, 7, 14, 7, 30, 0}, "cairo"},
            {"Asia/Kathmandu", {2027, 5, 5, 9, 0, 0}, "comma, semicolon; backslash\\ and \"quotes\""},
            {"Australia/Lord_Howe", {2027, 4, 4, 9, 0, 0}, "half an hour of summer"},
            {"Europe/Dublin", {2027, 1, 15, 0, 0, 0}, "at midnight"},
            {"America/Sao_Paulo", {2027, 6, 30, 23, 30, 0}, "over midnight"},
            {"Africa/Casablanca", {2027, 2, 20, 8, 0, 0}, "summer all year but Ramadan"},
            {"Pacific/Kiritimati", {2027, 12, 31, 23, 59, 0}, "fourteen hours ahead"},
            {"America/St_Johns", {2027, 11, 7, 12, 0, 0}, longTitle},
            {"America/New_York", {2027, 8, 1, 9, 0, 0}, "BEGIN:VALARM"},
            {"Asia/Almaty", {2028, 2, 29, 9, 0, 0}, "leap day"},
        };
    }();
    return all;
}

TimePoint momentOf(const Case& row, const Calendar& calendar) {
    return *calendar.resolve(row.start) + (row.second ? std::chrono::hours(1) : std::chrono::hours(0));
}
} // namespace

TEST_F(VdirEventStoreTest, MakesItsOwnFoldersAndWritesPrivateFiles) {
    VdirEventStore store = storeIn(calendar);
    for (const EventEntity entity : {EventEntity::reminder, EventEntity::event}) {
        ASSERT_TRUE(store.requestAccess(entity, {}));
        const auto list = *store.defaultList(entity, {});
        ASSERT_TRUE(list);
        EXPECT_EQ(list->id, *store.revealPath(entity));
        const std::string uid = "8a6e0804-2bd0-4672-b79d-d97027f9071a";
        const auto id = entity == EventEntity::reminder
                            ? store.save(Reminder{"milk", {}, {}}, *list, uid, {})
                            : store.save(CalendarEvent{"standup", clock.now(), clock.now()}, *list, uid, {});
        ASSERT_TRUE(id);
        struct stat status {};
        ASSERT_EQ(::stat((list->id + "/" + *id + ".ics").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
        EXPECT_EQ(files.list(list->id)->size(), 1U) << "no temporary file stays";
    }
}

TEST_F(VdirEventStoreTest, AnIdentifierIsSavedOnceAndRemovedOnce) {
    VdirEventStore store = storeIn(calendar);
    for (const EventEntity entity : {EventEntity::reminder, EventEntity::event}) {
        const auto list = *store.defaultList(entity, {});
        ASSERT_TRUE(list);
        const auto save = [&](const std::string& title) {
            return entity == EventEntity::reminder
                       ? store.save(Reminder{title, {}, {}}, *list, "uid", {})
                       : store.save(CalendarEvent{title, clock.now(), clock.now()}, *list, "uid", {});
        };
        ASSERT_TRUE(save("first"));
        const std::string path = list->id + "/uid.ics";
        std::ofstream(path, std::ios::app) << "edited";
        const auto again = save("second");
        ASSERT_TRUE(again);
        EXPECT_EQ(*again, "uid");
        EXPECT_EQ(files.list(list->id)->size(), 1U);
        const std::string text = *files.read(path);
        EXPECT_NE(text.find("SUMMARY:first"), std::string::npos) << text;
        EXPECT_NE(text.find("edited"), std::string::npos) << "what the user made of it stays";
        EXPECT_TRUE(store.remove(entity, list->id, "uid", {}));
        EXPECT_FALSE(files.exists(path));
        const auto missing = store.remove(entity, list->id, "uid", {});
        ASSERT_FALSE(missing);
        EXPECT_NE(missing.error().description.find("is not there any more"), std::string::npos);
    }
}

TEST_F(VdirEventStoreTest, UsesTheChosenFolderAndNeverInventsIt) {
    VdirEventStore store = storeIn(calendar);
    const std::string chosen = folder.file("vdir/work");
    ASSERT_TRUE(defaults.set(VdirEventStore::calendarSetting, chosen));
    EXPECT_TRUE(store.requestAccess(EventEntity::event, {}));
    EXPECT_FALSE(*store.defaultList(EventEntity::event, {})) << "a missing folder is no calendar";
    EXPECT_FALSE(files.exists(chosen));
    ASSERT_TRUE(files.createFolders(chosen, privateFolderMode));
    EXPECT_EQ((*store.defaultList(EventEntity::event, {}))->title, "work") << "a folder without a name of its own";
    std::ofstream(chosen + "/displayname") << "Work\n";
    const auto list = *store.defaultList(EventEntity::event, {});
    ASSERT_TRUE(list);
    EXPECT_EQ(list->title, "Work");
    // It vanishes before the item is written.
    ASSERT_EQ(::rename(chosen.c_str(), (chosen + ".old").c_str()), 0);
    const auto saved = store.save(CalendarEvent{"x", clock.now(), clock.now()}, *list, "uid", {});
    ASSERT_FALSE(saved);
    EXPECT_FALSE(saved.error().description.empty());
}

TEST_F(VdirEventStoreTest, AFileInTheWayIsReportedInItsOwnWords) {
    ASSERT_TRUE(files.createFolders(paths.documents, privateFolderMode));
    std::ofstream(paths.documents + "/Snipwren") << "not a folder";
    VdirEventStore store = storeIn(calendar);
    EXPECT_TRUE(store.requestAccess(EventEntity::event, {})) << "nobody refused";
    const auto list = store.defaultList(EventEntity::event, {});
    ASSERT_FALSE(list);
    EXPECT_FALSE(list.error().description.empty());
}

TEST_F(VdirEventStoreTest, KhalReadsWhatWeMeant) {
    if (std::system("command -v khal >/dev/null") != 0) GTEST_SKIP() << "khal is not installed";
    std::string path;
    for (const Case& row : cases()) {
        const Calendar where = *Calendar::make(row.zone, "en_GB");
        VdirEventStore store = storeIn(where);
        const TimePoint start = momentOf(row, where);
        const auto list = *store.defaultList(EventEntity::event, {});
        path = list->id;
        ASSERT_TRUE(
            store.save(CalendarEvent{row.title, start, start + std::chrono::hours(1)}, *list, random.uuid(), {}));
    }
    std::ofstream(folder.file("khal.conf"))
        << "[calendars]\n[[c]]\npath = " << path << "\n[sqlite]\npath = " << folder.file("khal.db")
        << "\n[locale]\nlocal_timezone = UTC\ndefault_timezone = UTC\ntimeformat = %H:%M\ndateformat = %Y-%m-%d\n"
           "longdateformat = %Y-%m-%d\ndatetimeformat = %Y-%m-%d %H:%M\nlongdatetimeformat = %Y-%m-%d %H:%M\n";
    const std::string listed =
        output("HOME=" + folder.path() + " LC_ALL=C.UTF-8 khal -c " + folder.file("khal.conf")
               + " list --once --format '{start-long}Z {end-long}Z {title}' 2027-01-01 2028-12-31");
    for (const Case& row : cases()) {
        const TimePoint start = momentOf(row, *Calendar::make(row.zone, "en_GB"));
        const auto shown = [](TimePoint moment) {
            return replacedAll(isoUtc(moment), "T", " ").substr(0, 16) + "Z"; // To the minute.
        };
        const std::string want = shown(start) + " " + shown(start + std::chrono::hours(1)) + " " + row.title;
        EXPECT_NE(listed.find(want), std::string::npos) << want << "\nis not in\n" << listed;
    }
}

TEST_F(VdirEventStoreTest, TodomanReadsWhatWeMeant) {
    if (std::system("command -v todoman >/dev/null") != 0) GTEST_SKIP() << "todoman is not installed";
    std::string path;
    for (const Case& row : cases()) {
        const Calendar where = *Calendar::make(row.zone, "en_GB");
        VdirEventStore store = storeIn(where);
        const auto list = *store.defaultList(EventEntity::reminder, {});
        path = list->id;
        const TimePoint due = momentOf(row, where);
        ASSERT_TRUE(store.save(Reminder{row.title, due, due}, *list, random.uuid(), {}));
    }
    std::ofstream(folder.file("todoman.py")) << "path = \"" << path << "\"\ncache_path = \"" << folder.file("todo.db")
                                             << "\"\ntime_format = \"%H:%M\"\ndate_format = \"%Y-%m-%d\"\n";
    const std::string listed = output("HOME=" + folder.path() + " TZ=UTC LC_ALL=C.UTF-8 todoman --config "
                                      + folder.file("todoman.py") + " --porcelain list --sort due");
    for (const Case& row : cases()) {
        const TimePoint due = momentOf(row, *Calendar::make(row.zone, "en_GB"));
        const std::string number = std::to_string(static_cast<long long>(secondsSince1970(due)));
        EXPECT_NE(listed.find("\"due\": " + number), std::string::npos) << row.title << " " << number << "\n" << listed;
    }
    EXPECT_NE(listed.find("comma, semicolon; backslash\\\\ and \\\"quotes\\\""), std::string::npos) << listed;
}
} // namespace snipwren
