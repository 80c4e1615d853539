#pragma once

#include "app/Environment.h"
#include "app/MachineParts.h"
#include "base/ThreadQueue.h"
#include "store/KeychainHelper.h"

namespace snipwren {
/// The secrets store with its queue.
class McpSecrets {
public:
    explicit McpSecrets(Environment& environment);
    KeychainHelper& helper() { return helper_; }

private:
    const std::unique_ptr<LegacyKeychain> keychain_ = makeLegacyKeychain();
    ThreadQueue queue_{KeychainHelper::queueLabel};
    KeychainHelper helper_;
};

/// Speaks the Model Context Protocol on standard input and output until the client is done. Opens nothing but the secret
/// that it needs, and that only with the first call, because AI clients start many of these.
void speakModelContextProtocol(Environment& environment, unsigned short port);
} // namespace snipwren
