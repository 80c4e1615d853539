#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace snipwren {
class KeychainHelper;
class Log;
class Random;

enum class SealError {
    noKey,        ///< There is no key and none could be kept, or the kept one is damaged.
    notAuthentic, ///< Not sealed with this key, or changed since.
    failed,       ///< The cipher or the random generator refused.
};

/// Seals texts for the database with AES-256-GCM under the field-memory key of the local secrets: base64 of nonce,
/// ciphertext and tag. The key is made at the first seal. Thread safe.
class MemorySealer {
public:
    static constexpr const char* keyName = "fieldMemory.encryptionKey";
    static constexpr const char* keyLabel = "Snipwren Field Memory Encryption Key";
    static constexpr std::size_t keySize = 32;

    MemorySealer(KeychainHelper& secrets, Random& random, Log& log) : secrets_(secrets), random_(random), log_(log) {}

    Result<std::string, SealError> seal(std::string_view text);
    Result<std::string, SealError> open(std::string_view sealed);

private:
    std::optional<std::string> usable(std::optional<std::string> key);

    KeychainHelper& secrets_;
    Random& random_;
    Log& log_;
};
} // namespace snipwren
