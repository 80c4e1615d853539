#include "store/KeychainHelper.h"

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "platform/LegacyKeychain.h"

namespace snipwren {
namespace {
struct LegacyItem {
    const char* service;
    const char* key;
    const char* toService;
    const char* toKey;
};
constexpr LegacyItem legacyItems[] = {
    {"SnipwrenAI", "slackToken", "SnipwrenAI", "slackToken"},
    {"SnipwrenAI", "openai", "SnipwrenAI", "openai"},
    {"SnipwrenAI", "anthropic", "SnipwrenAI", "anthropic"},
    {KeychainHelper::service, "fieldMemory.encryptionKey", KeychainHelper::service, "fieldMemory.encryptionKey"},
    {"SnipwrenFieldMemory", "encryptionKey", KeychainHelper::service, "fieldMemory.encryptionKey"},
    {KeychainHelper::service, "mcp_token", KeychainHelper::service, "mcp_token"},
};
/// Written by earlier versions to find out whether the keychain answers.
constexpr const char* probeItem = "SnipwrenKeychainAuthTest";

/// Everything but ASCII letters and digits is escaped, so a name cannot leave the folder.
std::string percentEncoded(std::string_view name) {
    constexpr std::string_view hex = "0123456789ABCDEF";
    std::string encoded;
    for (const char letter : name) {
        const auto byte = static_cast<unsigned char>(letter);
        if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z')) {
            encoded += letter;
        } else {
            encoded += {'%', hex[byte >> 4], hex[byte & 0xF]};
        }
    }
    return encoded;
}
} // namespace

KeychainHelper::KeychainHelper(const Dependencies& dependencies)
    : files_(dependencies.files),
      folder_(joinedPath(dependencies.paths.applicationSupport, "local-secrets")),
      queue_(dependencies.queue),
      log_(dependencies.log),
      keychain_(dependencies.keychain),
      testMode_(dependencies.testMode) {}

std::optional<std::string> KeychainHelper::path(std::string_view owner, std::string_view key) const {
    if (!isValidUtf8(owner) || !isValidUtf8(key)) return std::nullopt;
    return joinedPath(folder_, percentEncoded(owner) + "__" + percentEncoded(key) + ".secret");
}

std::int32_t KeychainHelper::save(std::string_view owner, std::string_view key, std::string_view data,
                                  std::optional<std::string_view>) {
    return queue_.call([&] { return saveOnQueue(owner, key, data); });
}

std::int32_t KeychainHelper::saveOnQueue(std::string_view owner, std::string_view key, std::string_view data) {
    const auto fail = [&](const std::string& reason) {
        log_.line("❌ Local secret save failed (" + std::string(key) + "): " + reason);
        return inputOutputError;
    };
    const auto file = path(owner, key);
    if (!file) return fail("The name is not valid text.");
    if (const auto made = files_.createFolders(folder_, privateFolderMode); !made) {
        log_.line("❌ Failed to create local secrets directory: " + made.error().description);
        return fail(made.error().description);
    }
    (void)files_.setMode(folder_, privateFolderMode); // A folder that is not ours to change: the files are private.
    if (const auto written = files_.writeAtomic(*file, data, privateFileMode); !written)
        return fail(written.error().description);
    return success;
}

std::optional<std::string> KeychainHelper::load(std::string_view owner, std::string_view key, bool) {
    const auto file = path(owner, key);
    if (!file) return std::nullopt;
    return queue_.call([&]() -> std::optional<std::string> {
        auto bytes = files_.read(*file);
        return bytes ? std::optional(std::move(*bytes)) : std::nullopt;
    });
}

bool KeychainHelper::remove(std::string_view owner, std::string_view key) {
    return queue_.call([&] {
        purgeOnQueue();
        const auto file = path(owner, key);
        const bool removed = file && files_.remove(*file).has_value();
        if (!testMode_) keychain_.remove(owner, key);
        return removed;
    });
}

void KeychainHelper::purgeLegacyKeychainItemsIfNeeded() {
    queue_.sync([this] { purgeOnQueue(); });
}

void KeychainHelper::purgeOnQueue() {
    if (purged_) return;
    purged_ = true;
    if (testMode_) return;
    for (const LegacyItem& item : legacyItems) {
        const std::string name = std::string(item.service) + "/" + item.key;
        const LegacyKeychain::Answer answer = keychain_.read(item.service, item.key);
        switch (answer.outcome) {
        case LegacyKeychain::Outcome::found:
            // An item that could not be written stays where it is, for the next start.
            if (!files_.exists(path(item.toService, item.toKey).value_or(""))
                && saveOnQueue(item.toService, item.toKey, answer.data) != success)
                break;
            keychain_.remove(item.service, item.key);
            log_.line("🔑 Migrated legacy Keychain item " + name + " → file store.");
            break;
        case LegacyKeychain::Outcome::needsInteraction:
            log_.line("🔑 Legacy Keychain item " + name + " requires UI to read; left in place.");
            break;
        case LegacyKeychain::Outcome::missing:
        case LegacyKeychain::Outcome::failed: break;
        }
    }
    keychain_.remove(service, probeItem);
}
} // namespace snipwren
