#include "store/KeychainHelper.h"

#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "support/FakeLegacyKeychain.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using Outcome = LegacyKeychain::Outcome;

class KeychainHelperTest : public testing::Test {
protected:
    KeychainHelper helper(bool testMode = false) {
        return KeychainHelper(
            {.files = files, .paths = paths, .queue = queue, .log = log, .keychain = keychain, .testMode = testMode});
    }
    unsigned mode(const std::string& path) const {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777u : 0;
    }
    std::string secrets() const { return joinedPath(paths.applicationSupport, "local-secrets"); }

    TemporaryFolder folder;
    PosixFileIO posix;
    FileIO& files = posix;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{TimePoint{}};
    ManualQueue queue{KeychainHelper::queueLabel, clock};
    MemoryLog log;
    FakeLegacyKeychain keychain;
};

TEST_F(KeychainHelperTest, KeepsBytesExactlyAndPrivately) {
    KeychainHelper secretsStore = helper();
    const std::string bytes("\0\xFF\nsecret", 9);
    EXPECT_EQ(secretsStore.load("SnipwrenAI", "openai"), std::nullopt) << "never saved is not empty";
    ASSERT_EQ(secretsStore.save("SnipwrenAI", "openai", "old"), KeychainHelper::success);
    const std::string file = joinedPath(secrets(), "SnipwrenAI__openai.secret");
    ::chmod(file.c_str(), 0644);
    ::chmod(secrets().c_str(), 0755);
    ASSERT_EQ(secretsStore.save("SnipwrenAI", "openai", bytes, "a label"), KeychainHelper::success);
    EXPECT_EQ(secretsStore.load("SnipwrenAI", "openai"), bytes);
    EXPECT_EQ(mode(file), 0600u);
    EXPECT_EQ(mode(secrets()), 0700u);
    EXPECT_EQ(secretsStore.save("SnipwrenAI", "openai", ""), KeychainHelper::success);
    EXPECT_EQ(secretsStore.load("SnipwrenAI", "openai"), "") << "empty is not missing";
    EXPECT_TRUE(secretsStore.remove("SnipwrenAI", "openai"));
    EXPECT_EQ(secretsStore.load("SnipwrenAI", "openai"), std::nullopt);
    EXPECT_TRUE(secretsStore.remove("SnipwrenAI", "openai")) << "a missing file is no error";
    std::filesystem::remove_all(secrets());
    EXPECT_EQ(secretsStore.save("SnipwrenAI", "openai", "x"), KeychainHelper::success) << "the folder comes back";
}

TEST_F(KeychainHelperTest, NoNameLeavesTheFolder) {
    KeychainHelper secretsStore = helper();
    const std::pair<const char*, const char*> names[] = {
        {"fieldMemory.encryptionKey", "com%2Esnipwren%2Eapp__fieldMemory%2EencryptionKey.secret"},
        {"../../etc/x y", "com%2Esnipwren%2Eapp__%2E%2E%2F%2E%2E%2Fetc%2Fx%20y.secret"},
        {"schl\xC3\xBCssel_1", "com%2Esnipwren%2Eapp__schl%C3%BCssel%5F1.secret"},
        {"", "com%2Esnipwren%2Eapp__.secret"}};
    for (const auto& [key, file] : names) {
        ASSERT_EQ(secretsStore.save(KeychainHelper::service, key, key), KeychainHelper::success) << key;
        EXPECT_TRUE(files.exists(joinedPath(secrets(), file))) << file;
        EXPECT_EQ(secretsStore.load(KeychainHelper::service, key), key);
    }
    EXPECT_EQ(files.list(secrets())->size(), std::size(names));
    EXPECT_EQ(secretsStore.save("\xFF", "key", "value"), KeychainHelper::inputOutputError);
    EXPECT_EQ(secretsStore.load("\xFF", "key"), std::nullopt);
}

TEST_F(KeychainHelperTest, AFailedSaveIsLoggedWithoutTheSecretAndKeepsTheOldOne) {
    KeychainHelper secretsStore = helper();
    ASSERT_TRUE(files.createFolders(parentPath(paths.applicationSupport)));
    ASSERT_TRUE(files.writeAtomic(paths.applicationSupport, "a file in the folder's place"));
    EXPECT_EQ(secretsStore.save("SnipwrenAI", "openai", "hunter2"), KeychainHelper::inputOutputError);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].rfind("❌ Failed to create local secrets directory: ", 0), 0u) << log.lines()[0];
    EXPECT_EQ(log.lines()[1].rfind("❌ Local secret save failed (openai", 0), 0u) << log.lines()[1];
    for (const std::string& line : log.lines()) EXPECT_EQ(line.find("hunter2"), std::string::npos) << line;
}

TEST_F(KeychainHelperTest, MovesLegacyItemsOnceAndOverwritesNothing) {
    KeychainHelper secretsStore = helper();
    ASSERT_EQ(secretsStore.save("SnipwrenAI", "openai", "newer"), KeychainHelper::success);
    keychain.items["SnipwrenAI/openai"] = {Outcome::found, "older"};
    keychain.items["SnipwrenFieldMemory/encryptionKey"] = {Outcome::found, "key"};
    keychain.items["SnipwrenAI/slackToken"] = {Outcome::needsInteraction, ""};
    keychain.items["SnipwrenAI/anthropic"] = {Outcome::failed, ""};
    secretsStore.purgeLegacyKeychainItemsIfNeeded();

    EXPECT_EQ(secretsStore.load("SnipwrenAI", "openai"), "newer");
    EXPECT_EQ(secretsStore.load(KeychainHelper::service, "fieldMemory.encryptionKey"), "key");
    EXPECT_EQ(secretsStore.load("SnipwrenAI", "slackToken"), std::nullopt);
    EXPECT_EQ(keychain.removed, (std::vector<std::string>{"SnipwrenAI/openai", "SnipwrenFieldMemory/encryptionKey",
                                                          "com.snipwren.app/SnipwrenKeychainAuthTest"}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "🔑 Legacy Keychain item SnipwrenAI/slackToken requires UI to read; left in place.",
                               "🔑 Migrated legacy Keychain item SnipwrenAI/openai → file store.",
                               "🔑 Migrated legacy Keychain item SnipwrenFieldMemory/encryptionKey → file store."}));
    const int calls = keychain.calls;
    secretsStore.purgeLegacyKeychainItemsIfNeeded();
    EXPECT_EQ(keychain.calls, calls);
    EXPECT_TRUE(secretsStore.remove("SnipwrenAI", "slackToken"));
    EXPECT_EQ(keychain.removed.back(), "SnipwrenAI/slackToken");
}

TEST_F(KeychainHelperTest, AnItemThatCannotBeWrittenStaysInTheKeychain) {
    ASSERT_TRUE(files.createFolders(parentPath(paths.applicationSupport)));
    ASSERT_TRUE(files.writeAtomic(paths.applicationSupport, ""));
    keychain.items["SnipwrenAI/openai"] = {Outcome::found, "only copy"};
    helper().purgeLegacyKeychainItemsIfNeeded();
    EXPECT_TRUE(keychain.items.contains("SnipwrenAI/openai"));
}

TEST_F(KeychainHelperTest, AutomatedRunsNeverAskTheKeychain) {
    KeychainHelper secretsStore = helper(true);
    secretsStore.purgeLegacyKeychainItemsIfNeeded();
    ASSERT_EQ(secretsStore.save("SnipwrenAI", "openai", "x"), KeychainHelper::success);
    EXPECT_TRUE(secretsStore.remove("SnipwrenAI", "openai"));
    EXPECT_EQ(keychain.calls, 0);
}
} // namespace
} // namespace snipwren
