#include "store/Database.h"

#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
Database opened(const std::string& path) {
    auto database = Database::open(path);
    if (!database) throw std::runtime_error(database.error().description);
    return std::move(*database);
}

unsigned modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777u : 0;
}

TEST(Database, BringsBackEveryKindOfValue) {
    Database database = opened(Database::inMemory);
    ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT, b INTEGER, c REAL, d BLOB, e TEXT);"));
    const std::string text("caf\xC3\xA9\0tail", 10);
    auto insert = database.prepare("INSERT INTO t VALUES (?, ?, ?, ?, ?);");
    ASSERT_TRUE(insert);
    insert->bindAll(text, INT64_MIN, 0.1, "", std::optional<std::string>());
    insert->bindBlob(4, std::string_view("\0\xFF", 2));
    ASSERT_TRUE(insert->run());

    auto select = database.prepare("SELECT * FROM t;");
    ASSERT_TRUE(select);
    const auto stepped = select->step();
    ASSERT_TRUE(stepped && *stepped);
    EXPECT_EQ(select->text(0), text);
    EXPECT_EQ(select->integer(1), INT64_MIN);
    EXPECT_EQ(select->real(2), 0.1);
    EXPECT_EQ(select->blob(3), std::string("\0\xFF", 2));
    EXPECT_FALSE(select->isNull(0));
    EXPECT_TRUE(select->isNull(4));
    EXPECT_EQ(select->text(4), "");
    EXPECT_EQ(select->optionalText(4), std::nullopt);
    EXPECT_EQ(select->columnName(1), "b");
}

TEST(Database, BindsEmptyTextAsTextNotAsNull) {
    Database database = opened(Database::inMemory);
    ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT NOT NULL);"));
    EXPECT_TRUE(database.run("INSERT INTO t VALUES (?);", std::string_view()));
}

TEST(Database, KeptStatementsForgetTheirParametersAndMayBeNested) {
    Database database = opened(Database::inMemory);
    ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT); INSERT INTO t VALUES ('x'), ('y');"));
    const std::string sql = "SELECT a FROM t WHERE a = ? OR ? IS NULL;";
    ASSERT_TRUE(database.run(sql, "x", "set"));
    auto outer = database.prepare(sql);
    ASSERT_TRUE(outer);
    ASSERT_EQ(outer->step().value_or(false), true) << "the parameters of the run before are gone";
    {
        auto inner = database.prepare(sql);
        ASSERT_TRUE(inner);
        inner->bindAll("y", "set");
        ASSERT_EQ(inner->step().value_or(false), true);
        EXPECT_EQ(inner->text(0), "y");
    }
    EXPECT_EQ(outer->step().value_or(false), true) << "the inner one did not disturb the outer one";
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(database.run("SELECT " + std::to_string(i) + ";"));
}

TEST(Database, ReportsFaultsWithSqlitesMessage) {
    Database database = opened(Database::inMemory);
    const auto executed = database.execute("SELECT * FROM nowhere;");
    ASSERT_FALSE(executed);
    EXPECT_EQ(executed.error().description, "no such table: nowhere");
    ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT UNIQUE); INSERT INTO t VALUES ('x');"));
    const auto twice = database.run("INSERT INTO t VALUES (?);", "x");
    ASSERT_FALSE(twice);
    EXPECT_EQ(twice.error().description, "UNIQUE constraint failed: t.a");
    EXPECT_TRUE(database.run("INSERT INTO t VALUES (?);", "y")) << "a kept statement works after its fault";
    EXPECT_FALSE(database.run("INSERT INTO t VALUES (?);", "z", "one too many"));
    EXPECT_FALSE(database.prepare("  ")) << "nothing to run";
}

TEST(Database, ATransactionHappensWholeOrNotAtAll) {
    Database database = opened(Database::inMemory);
    ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT UNIQUE);"));
    const auto insertTwice = [&]() -> Result<void, DatabaseError> {
        if (auto first = database.run("INSERT INTO t VALUES (?);", "x"); !first) return first;
        return database.run("INSERT INTO t VALUES (?);", "x");
    };
    EXPECT_FALSE(database.transaction(insertTwice));
    const auto count = [&] {
        auto select = database.prepare("SELECT count(*) FROM t;");
        return select && select->step().value_or(false) ? select->integer(0) : -1;
    };
    EXPECT_EQ(count(), 0);
    EXPECT_TRUE(database.transaction([&] { return database.run("INSERT INTO t VALUES (?);", "x"); }));
    EXPECT_EQ(count(), 1);
}

TEST(Database, TwoConnectionsReadAndWriteSideBySide) {
    const TemporaryFolder folder;
    Database first = opened(folder.file("a.db"));
    Database second = opened(folder.file("a.db"));
    ASSERT_TRUE(first.execute("CREATE TABLE t (a INTEGER); INSERT INTO t VALUES (1);"));
    ASSERT_TRUE(first.execute("BEGIN IMMEDIATE; INSERT INTO t VALUES (2);"));
    auto reader = second.prepare("SELECT count(*) FROM t;");
    ASSERT_TRUE(reader && reader->step().value_or(false)) << "a reader does not wait for a writer";
    EXPECT_EQ(reader->integer(0), 1);
    reader->reset();
    ASSERT_TRUE(first.execute("COMMIT;"));
    EXPECT_TRUE(second.run("INSERT INTO t VALUES (?);", 3));
}

TEST(Database, FilesAreTheOwnersAlone) {
    const TemporaryFolder folder;
    std::ofstream(folder.file("old.db")); // Made readable for everybody by another program.
    ::chmod(folder.file("old.db").c_str(), 0644);
    const mode_t mask = ::umask(0);
    for (const char* name : {"new.db", "old.db"}) {
        Database database = opened(folder.file(name));
        ASSERT_TRUE(database.execute("CREATE TABLE t (a TEXT); INSERT INTO t VALUES ('secret');"));
        for (const char* suffix : {"", "-wal", "-shm"})
            EXPECT_EQ(modeOf(folder.file(name) + suffix), 0600u) << name << suffix;
    }
    ::umask(mask);
}

TEST(Database, RefusesWhatIsNoDatabaseAndLeavesItAlone) {
    const TemporaryFolder folder;
    const std::string garbage(8192, 'x');
    std::ofstream(folder.file("damaged.db")) << garbage;
    const auto damaged = Database::open(folder.file("damaged.db"));
    ASSERT_FALSE(damaged);
    EXPECT_TRUE(damaged.error().isDamaged()) << damaged.error().description;
    std::ifstream file(folder.file("damaged.db"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), garbage);

    EXPECT_FALSE(Database::open(folder.path())) << "a folder in the file's place";
    EXPECT_FALSE(Database::open(folder.file("missing/a.db")));
}
} // namespace
} // namespace snipwren
