#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace snipwren {
class FileIO;
class LegacyKeychain;
class Log;
class SerialQueue;
struct Paths;

/// The program's secrets, one owner-only file each, addressed by an owning service and a key. Every operation runs on the
/// secrets queue and blocks its caller, so it must not be called from that queue. Values are never logged.
class KeychainHelper {
public:
    static constexpr const char* service = "com.snipwren.app";
    static constexpr const char* queueLabel = "com.snipwren.app.localSecrets";
    static constexpr std::int32_t success = 0;
    static constexpr std::int32_t inputOutputError = -36;

    struct Dependencies {
        FileIO& files;
        const Paths& paths;
        SerialQueue& queue;
        Log& log;
        LegacyKeychain& keychain;
        /// Automated runs (SW_TEST_MODE is "1") must not touch the user's system keychain.
        bool testMode = false;
    };
    explicit KeychainHelper(const Dependencies& dependencies);

    /// Answers `success` or `inputOutputError`. The label is for the callers' sake; it is not recorded.
    std::int32_t save(std::string_view owner, std::string_view key, std::string_view data,
                      std::optional<std::string_view> label = std::nullopt);
    /// None when it was never saved or cannot be read. `skipAuthUI` has no effect on files.
    std::optional<std::string> load(std::string_view owner, std::string_view key, bool skipAuthUI = false);
    /// The file, and the item of that name in the system's keychain. False when the file could not be removed.
    bool remove(std::string_view owner, std::string_view key);
    /// Moves what earlier versions left in the system's keychain into files; once per process.
    void purgeLegacyKeychainItemsIfNeeded();

    /// Where a secret lies; none for names that are not valid text.
    std::optional<std::string> path(std::string_view owner, std::string_view key) const;

private:
    std::int32_t saveOnQueue(std::string_view owner, std::string_view key, std::string_view data);
    void purgeOnQueue();

    FileIO& files_;
    const std::string folder_;
    SerialQueue& queue_;
    Log& log_;
    LegacyKeychain& keychain_;
    const bool testMode_;
    bool purged_ = false; // Only on the queue.
};
} // namespace snipwren
