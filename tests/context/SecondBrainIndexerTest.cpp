#include "context/notes/SecondBrainIndexer.h"

#include <csignal>

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/ThreadQueue.h"
#include "context/SecondBrainFixture.h"
#include "support/FaultyFileIO.h"

namespace snipwren {
namespace {
class SecondBrainIndexerTest : public SecondBrainFixture {};

TEST_F(SecondBrainIndexerTest, IndexesTheNotesOfAFolderAndPublishesIt) {
    write("Notes/Plan.MD", "# Plan\nDeploy the snake_case cluster");
    write("Notes/deep/er/list.org", "second thing");
    write("Notes/ignored.rtf", "deploy");
    write("Notes/.obsidian/hidden.md", "deploy");
    write("Notes/node_modules/package.md", "deploy");
    write("Notes/.draft.md", "deploy");
    indexer_.open();
    mainQueue_.runReady();
    std::vector<bool> indexing;
    indexer_.onChange([&] { indexing.push_back(indexer_.isIndexing()); });
    ASSERT_EQ(indexer_.addFolder(folder_.file("Notes/")), true);
    mainQueue_.runReady();
    EXPECT_TRUE(indexer_.isIndexing());
    EXPECT_FALSE(indexer_.lastIndexedTime());
    settle();
    EXPECT_FALSE(indexer_.isIndexing());
    EXPECT_TRUE(indexing.front());
    EXPECT_EQ(indexer_.documentCount(), 2);
    EXPECT_EQ(indexer_.lastIndexedTime(), clock_.now());
    EXPECT_EQ(indexer_.state().filesDone, 2u);
    const auto found = engine_.search("deploy the snakecase");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].title, "Plan");
    EXPECT_EQ(found[0].snippet, "Plan Deploy the snakecase cluster");
    EXPECT_EQ(found[0].filePath, folder_.file("Notes/Plan.MD"));
    EXPECT_EQ(found[0].sourceName, "Notes");
    EXPECT_TRUE(logHas("📁 SnipwrenKnowledge.db Path: " + paths_.applicationSupport + "/SnipwrenKnowledge.db"));
    struct stat info {};
    ASSERT_EQ(::stat((paths_.applicationSupport + "/SnipwrenKnowledge.db").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777u, 0600u);
}

TEST_F(SecondBrainIndexerTest, ListsEachNoteOnceHoweverItIsReached) {
    write("A/one.md", "alpha");
    write("A/B/two.md", "alpha");
    std::filesystem::create_directory_symlink(folder_.file("A"), folder_.file("A/B/loop"));
    std::filesystem::create_symlink(folder_.file("A/one.md"), folder_.file("A/link.md"));
    std::filesystem::create_symlink(folder_.file("nowhere"), folder_.file("A/broken.md"));
    EXPECT_EQ(indexer_.listFolder(folder_.file("A")), true);
    EXPECT_EQ(indexer_.listFolder(folder_.file("A/../A/")), false);
    EXPECT_EQ(indexer_.listFolder(folder_.file("A/B/loop")), false);
    EXPECT_EQ(indexer_.listFolder(folder_.file("A/B")), true);
    EXPECT_FALSE(indexer_.listFolder(folder_.file("missing")));
    rebuild();
    EXPECT_EQ(paths("alpha"), (Names{"A/B/two.md", "A/link.md"}));
    EXPECT_EQ(indexer_.unlistFolder(folder_.file("A")), true);
    EXPECT_EQ(indexer_.unlistFolder(folder_.file("A")), false);
    rebuild();
    EXPECT_EQ(paths("alpha"), (Names{"A/B/loop/link.md", "A/B/two.md"})); // B links back to A.
}

TEST_F(SecondBrainIndexerTest, LeavesOutWhatIsNoText) {
    write("N/good.md", "\xEF\xBB\xBF# kept words");
    write("N/latin1.md", "caf\xE9 words");
    write("N/binary.txt", std::string("words\0more", 10));
    write("N/empty.md", "");
    write("N/huge.md", "");
    std::filesystem::resize_file(folder_.file("N/huge.md"), 16u * 1024 * 1024 + 1);
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    ASSERT_TRUE(defaults_.set(SecondBrainIndexer::foldersKey, Names{folder_.file("gone"), folder_.file("N")}));
    const auto summary = indexer_.rebuildIndex({});
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->documents, 2);
    EXPECT_EQ(summary->leftOut, 4u);
    EXPECT_EQ(engine_.find("words", 5).at(0).snippet, "kept words");
    for (const char* name : {"N/latin1.md", "N/binary.txt", "N/huge.md", "gone"})
        EXPECT_TRUE(logHas("Failed to index file \"" + folder_.file(name) + "\": ")) << name;
}

TEST_F(SecondBrainIndexerTest, KeepsThePreviousIndexWhenARebuildIsStoppedOrFails) {
    for (int i = 0; i < 200; ++i) write("N/" + std::to_string(i) + ".md", "first words");
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    rebuild();
    write("N/new.md", "later words");
    std::stop_source stop;
    const auto stopped = indexer_.rebuildIndex(stop.get_token(), [&](std::size_t done, std::size_t total) {
        EXPECT_EQ(total, 201u);
        EXPECT_EQ(paths("first").size(), 50u); // The old index answers meanwhile.
        if (done >= 64) stop.request_stop();
    });
    ASSERT_FALSE(stopped);
    EXPECT_EQ(paths("later"), Names());
    // The new index cannot take the old one's place.
    FaultyFileIO refusing;
    refusing.failAt = 5; // The exchange: after the folder, two removals and the flush.
    refusing.code = ENOSPC;
    SecondBrainIndexer other({refusing, paths_, defaults_, clock_, databaseQueue_, rebuildQueue_, mainQueue_, log_, 1});
    const auto failed = other.rebuildIndex({});
    ASSERT_FALSE(failed);
    EXPECT_NE(failed.error().find("The previous index is unchanged."), std::string::npos);
    EXPECT_EQ(other.store().count(), 200);
    EXPECT_FALSE(files_.exists(paths_.applicationSupport + "/SnipwrenKnowledge.db.rebuild"));
    rebuild();
    EXPECT_EQ(paths("later"), Names{"N/new.md"});
}

TEST_F(SecondBrainIndexerTest, AKilledRebuildLeavesThePreviousIndex) {
    for (int i = 0; i < 300; ++i) write("N/" + std::to_string(i) + ".md", "original words");
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    rebuild();
    write("N/300.md", "original words");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        SecondBrainIndexer inChild(dependencies());
        (void)inChild.rebuildIndex({}, [](std::size_t done, std::size_t) {
            if (done >= 128) ::kill(::getpid(), SIGKILL);
        });
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    SecondBrainIndexer reopened(dependencies());
    reopened.open();
    EXPECT_EQ(reopened.store().count(), 300);
    EXPECT_TRUE(files_.exists(paths_.applicationSupport + "/SnipwrenKnowledge.db.rebuild"));
    ASSERT_TRUE(reopened.rebuildIndex({}));
    EXPECT_EQ(reopened.store().count(), 301);
    EXPECT_FALSE(files_.exists(paths_.applicationSupport + "/SnipwrenKnowledge.db.rebuild"));
}

TEST_F(SecondBrainIndexerTest, AddsADocumentAlsoWhileARebuildRuns) {
    for (int i = 0; i < 70; ++i) write("N/" + std::to_string(i) + ".md", "note");
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    ASSERT_TRUE(indexer_.rebuildIndex({}, [&](std::size_t done, std::size_t) {
        if (done == 64) indexer_.indexFileDirectly("Direct", "**kept** as given", "/x/direct.md", "clip");
    }));
    const auto found = engine_.find("kept given", 3);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].snippet, "**kept** as given");
    mainQueue_.runReady();
    EXPECT_EQ(indexer_.store().count(), 71);
    rebuild(); // Every rebuild starts from nothing.
    EXPECT_EQ(indexer_.store().count(), 70);
}

TEST_F(SecondBrainIndexerTest, TakesOverWhatAnotherProgramHasBuilt) {
    write("N/a.md", "alpha");
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    rebuild();
    EXPECT_EQ(paths("alpha").size(), 1u);
    SecondBrainIndexer other(dependencies());
    write("N/b.md", "alpha");
    ASSERT_TRUE(other.rebuildIndex({}));
    EXPECT_EQ(paths("alpha").size(), 2u);
    indexer_.indexFileDirectly("c", "alpha", "/c.md", "x"); // Into the new file, not into the one that is gone.
    EXPECT_EQ(other.store().count(), 3);
}

TEST_F(SecondBrainIndexerTest, SearchesInMemoryWhenTheFileCannotBeUsed) {
    ASSERT_TRUE(files_.createFolders(paths_.applicationSupport, std::nullopt));
    const std::string path = paths_.applicationSupport + "/SnipwrenKnowledge.db";
    ASSERT_TRUE(files_.writeAtomic(path, std::string(8192, 'x'), std::nullopt));
    indexer_.open();
    EXPECT_TRUE(logHas("❌ SQLite Error: Failed to open SnipwrenKnowledge.db. Falling back to in-memory database."));
    EXPECT_EQ(paths("alpha"), Names());
    indexer_.indexFileDirectly("t", "alpha", folder_.file("t.md"), "x");
    EXPECT_EQ(paths("alpha"), Names{"t.md"});
    write("N/a.md", "alpha");
    ASSERT_TRUE(indexer_.listFolder(folder_.file("N")));
    rebuild(); // A rebuild needs nothing of the damaged file and takes its place.
    EXPECT_EQ(paths("alpha"), Names{"N/a.md"});
    SecondBrainIndexer next(dependencies());
    EXPECT_EQ(next.store().count(), 1);
}

TEST_F(SecondBrainIndexerTest, SearchesAndRebuildsAtTheSameTime) {
    for (int i = 0; i < 150; ++i) write("N/" + std::to_string(i) + ".md", "shared words number " + std::to_string(i));
    ThreadQueue main("main"), database(SecondBrainIndexer::queueLabel), rebuilds(SecondBrainIndexer::rebuildQueueLabel);
    for (ThreadQueue* queue : {&main, &database, &rebuilds}) queue->start();
    SecondBrainIndexer indexer({files_, paths_, defaults_, clock_, database, rebuilds, main, log_, 2});
    KnowledgeSuggestionEngine engine(indexer, random_);
    ASSERT_TRUE(indexer.listFolder(folder_.file("N")));
    ASSERT_TRUE(indexer.rebuildIndex({}));
    for (int round = 0; round < 5; ++round) {
        indexer.triggerAsyncReindex();
        indexer.triggerAsyncReindex(); // Stops the first.
        for (int i = 0; i < 20; ++i) EXPECT_EQ(engine.search("shared words number").size(), 3u);
        rebuilds.sync([] {});
        main.sync([&] { EXPECT_EQ(indexer.documentCount(), 150); });
    }
}
} // namespace
} // namespace snipwren
