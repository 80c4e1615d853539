#pragma once

#include "app/Environment.h"
#include "base/ThreadQueue.h"
#include "platform/portable/NoLegacyKeychain.h"
#include "store/KeychainHelper.h"

namespace snipwren {
/// The secrets store with its queue.
class McpSecrets {
public:
    explicit McpSecrets(Environment& environment);
    KeychainHelper& helper() { return helper_; }

private:
    NoLegacyKeychain keychain_;
    ThreadQueue queue_{KeychainHelper::queueLabel};
    KeychainHelper helper_;
};

/// Speaks the Model Context Protocol on standard input and output until the client is done. Opens nothing but the secret
/// that it needs, and that only with the first call, because AI clients start many of these.
void speakModelContextProtocol(Environment& environment, unsigned short port);
} // namespace snipwren
