#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/LocalStore.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
TEST(PrivateFiles, WhatIsKeptIsTheOwnersAloneAndStandsNowhereElse) {
    const mode_t mask = ::umask(0); // The modes must not depend on the user's mask.
    const TemporaryFolder folder;
    const std::string captured = "zebra crossing at dawn";
    const std::string secret = "hunter2-hunter2";
    {
        Environment environment(Paths::under(folder.path()));
        LocalStore store(environment);
        store.open();
        store.history().record("note", captured, true);
        EXPECT_TRUE(store.recoveryLog().saveFallback(captured, "slack", "Slack not connected"));
        EXPECT_TRUE(store.database().insertCapturedText(captured, "org.example.editor", std::nullopt));
        EXPECT_EQ(store.secrets().save("SnipwrenAI", "openai", secret), KeychainHelper::success);
        // Faults are told without what was typed.
        store.database().executeNonQuery("DROP TABLE capture_history; DROP TABLE captured_texts;");
        store.history().record("note", captured, true);
        EXPECT_FALSE(store.database().insertCapturedText(captured, "org.example.editor", std::nullopt));

        const std::string support = environment.paths().applicationSupport;
        int seen = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            const std::string path = entry.path().string();
            struct stat info {};
            ASSERT_EQ(::stat(path.c_str(), &info), 0) << path;
            if (entry.is_directory()) {
                EXPECT_TRUE(!path.starts_with(support) || (info.st_mode & 0777u) == 0700u) << path;
                continue;
            }
            ++seen;
            EXPECT_EQ(info.st_mode & 0777u, 0600u) << path;
            const std::string content = environment.files().read(path).value_or("");
            const bool mayHoldText = path.starts_with(support + "/SnipwrenRules.db") || path.ends_with("captures.log");
            EXPECT_TRUE(mayHoldText || content.find(captured) == std::string::npos) << path;
            EXPECT_EQ(content.find(secret) != std::string::npos, path.ends_with("openai.secret")) << path;
        }
        EXPECT_GE(seen, 6) << "database with its journal, recovery log, its reserve, secret, log";
    }
    ::umask(mask);
}

TEST(PrivateFiles, AClearedHistoryLeavesNoTextInTheFile) {
    const TemporaryFolder folder;
    Environment environment(Paths::under(folder.path()));
    const std::string captured = "zebra crossing at dawn";
    {
        LocalStore store(environment);
        store.open();
        store.history().record("note", captured, true);
        store.history().clearAll();
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        if (!entry.is_regular_file()) continue;
        const std::string content = environment.files().read(entry.path().string()).value_or("");
        EXPECT_EQ(content.find(captured), std::string::npos) << entry.path();
    }
}
} // namespace
} // namespace snipwren
