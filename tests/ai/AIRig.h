#pragma once

#include "ai/AnthropicService.h"
#include "ai/LocalOllamaService.h"
#include "ai/OpenAIService.h"
#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "hosts/portable/CurlHttpClient.h"
#include "store/KeychainHelper.h"
#include "support/FakeLegacyKeychain.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
/// The three providers over a real HTTP client, with settings and secrets in a folder of their own.
struct AIRig {
    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{fromSecondsSince1970(1'750'000'000)};
    ManualQueue secretsQueue{KeychainHelper::queueLabel, clock};
    MemoryLog log;
    FakeLegacyKeychain keychain;
    UserDefaults defaults{files, paths.defaultsFile};
    KeychainHelper secrets{{files, paths, secretsQueue, log, keychain, true}};
    CurlHttpClient http;
    AnthropicService anthropic{{http, secrets, defaults}};
    OpenAIService openAI{{http, secrets, defaults}};
    LocalOllamaService ollama{{http, secrets, defaults}};

    void setKey(const char* provider, std::string_view key) { secrets.save(HttpAIProvider::keyOwner, provider, key); }
    /// Sends every provider to one server of the test.
    void useServer(const std::string& address) {
        for (const char* setting : {"anthropicBaseURL", "openAIBaseURL", "ollamaBaseURL"})
            (void)defaults.set(setting, address);
    }
};
} // namespace snipwren
