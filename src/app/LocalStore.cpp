#include "app/LocalStore.h"

#include <cstdlib>
#include <cstring>

namespace snipwren {
namespace {
bool isTestMode() {
    const char* mode = std::getenv("SW_TEST_MODE"); // NOLINT(concurrency-mt-unsafe): read at start-up.
    return mode && std::strcmp(mode, "1") == 0;
}
} // namespace

LocalStore::LocalStore(Environment& environment)
    : databaseQueue_(std::in_place, DatabaseManager::queueLabel),
      secretsQueue_(std::in_place, KeychainHelper::queueLabel),
      database_({.files = environment.files(),
                 .paths = environment.paths(),
                 .clock = environment.clock(),
                 .defaults = environment.defaults(),
                 .queue = *databaseQueue_,
                 .log = environment.log()}),
      history_({.database = database_,
                .clock = environment.clock(),
                .notifications = environment.notifications(),
                .log = environment.log()}),
      recoveryLog_(environment.files(), environment.paths(), environment.clock(), environment.notifications()),
      journal_({.files = environment.files(),
                .paths = environment.paths(),
                .clock = environment.clock(),
                .random = environment.random(),
                .log = environment.log(),
                .makeRoom = {}}),
      secrets_({.files = environment.files(),
                .paths = environment.paths(),
                .queue = *secretsQueue_,
                .log = environment.log(),
                .keychain = keychain_,
                .testMode = isTestMode()}) {
    databaseQueue_->start();
    secretsQueue_->start();
}

LocalStore::~LocalStore() {
    databaseQueue_.reset();
    secretsQueue_.reset();
}

void LocalStore::open() {
    database_.open();
    history_.open();
    recoveryLog_.prepare();
}
} // namespace snipwren
