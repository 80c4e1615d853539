#pragma once

#include <optional>

#include "app/Environment.h"
#include "hosts/portable/NoLegacyKeychain.h"
#include "records/CaptureHistoryStore.h"
#include "records/CaptureJournal.h"
#include "records/FallbackCaptureLogger.h"
#include "store/DatabaseManager.h"
#include "store/KeychainHelper.h"

namespace snipwren {
/// What is kept on this machine, one of each, on queues of its own: the rules database, the history in it, the recovery
/// log and the secrets. Needs no host and starts fast: for commands that only look at what is kept.
class LocalStore {
public:
    explicit LocalStore(Environment& environment);
    LocalStore(const LocalStore&) = delete;
    ~LocalStore();

    /// Opens the database and sets the recovery log's reserve aside. The log and the secrets work without it.
    void open();

    DatabaseManager& database() { return database_; }
    CaptureHistoryStore& history() { return history_; }
    FallbackCaptureLogger& recoveryLog() { return recoveryLog_; }
    /// Not joined: nothing is captured through it.
    CaptureJournal& journal() { return journal_; }
    KeychainHelper& secrets() { return secrets_; }

private:
    // Optional, so that they are drained before what their tasks use is gone.
    std::optional<ThreadQueue> databaseQueue_;
    std::optional<ThreadQueue> secretsQueue_;
    NoLegacyKeychain keychain_;
    DatabaseManager database_;
    CaptureHistoryStore history_;
    FallbackCaptureLogger recoveryLog_;
    CaptureJournal journal_;
    KeychainHelper secrets_;
};
} // namespace snipwren
