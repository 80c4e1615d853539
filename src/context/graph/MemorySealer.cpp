#include "context/graph/MemorySealer.h"

#include <climits>
#include <memory>

#include <openssl/evp.h>

#include "base/Log.h"
#include "base/Random.h"
#include "context/server/LocalSecret.h"
#include "store/KeychainHelper.h"

namespace snipwren {
namespace {
constexpr int nonceSize = 12;
constexpr int tagSize = 16;
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

unsigned char* bytes(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }
const unsigned char* bytes(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

std::string base64(std::string_view raw) {
    std::string out(4 * ((raw.size() + 2) / 3) + 1, '\0');
    out.resize(static_cast<std::size_t>(EVP_EncodeBlock(bytes(out), bytes(raw), static_cast<int>(raw.size()))));
    return out;
}

std::optional<std::string> fromBase64(std::string_view text) {
    if (text.empty() || text.size() % 4 != 0 || text.size() > INT_MAX) return std::nullopt;
    std::string out(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(bytes(out), bytes(text), static_cast<int>(text.size()));
    if (length < 0) return std::nullopt;
    // The decoder counts the padding as zero bytes.
    const std::size_t padding = text.size() - text.find_last_not_of('=') - 1;
    if (padding > 2) return std::nullopt;
    out.resize(static_cast<std::size_t>(length) - padding);
    return out;
}
} // namespace

Result<std::string, SealError> MemorySealer::seal(std::string_view text) {
    const auto key = usable(loadOrCreateSecret(
        secrets_, keyName, [this] { return random_.bytes(keySize); }, keyLabel));
    if (!key) return unexpected(SealError::noKey);
    const std::string nonce = random_.bytes(nonceSize);
    const Cipher cipher(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    if (nonce.size() != nonceSize || !cipher || text.size() > INT_MAX / 2) return unexpected(SealError::failed);
    std::string sealed = nonce + std::string(text.size() + tagSize, '\0');
    unsigned char* const out = bytes(sealed) + nonceSize;
    int length = 0;
    int rest = 0;
    if (EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, bytes(std::string_view(*key)), bytes(nonce)) != 1
        || EVP_EncryptUpdate(cipher.get(), out, &length, bytes(text), static_cast<int>(text.size())) != 1
        || EVP_EncryptFinal_ex(cipher.get(), out + length, &rest) != 1
        || EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, tagSize, out + text.size()) != 1)
        return unexpected(SealError::failed);
    return base64(sealed);
}

Result<std::string, SealError> MemorySealer::open(std::string_view sealed) {
    const auto key = usable(secrets_.load(KeychainHelper::service, keyName, true));
    if (!key) return unexpected(SealError::noKey);
    auto raw = fromBase64(sealed);
    if (!raw || raw->size() < nonceSize + tagSize) return unexpected(SealError::notAuthentic);
    const Cipher cipher(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    if (!cipher) return unexpected(SealError::failed);
    std::string text(raw->size() - nonceSize - tagSize, '\0');
    const int size = static_cast<int>(text.size());
    int length = 0;
    int rest = 0;
    if (EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, bytes(std::string_view(*key)), bytes(*raw)) != 1
        || EVP_DecryptUpdate(cipher.get(), bytes(text), &length, bytes(*raw) + nonceSize, size) != 1
        || EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, tagSize, bytes(*raw) + nonceSize + size) != 1)
        return unexpected(SealError::failed);
    if (EVP_DecryptFinal_ex(cipher.get(), bytes(text) + length, &rest) != 1) return unexpected(SealError::notAuthentic);
    return text;
}

std::optional<std::string> MemorySealer::usable(std::optional<std::string> key) {
    if (!key || key->size() == keySize) return key;
    // Replacing it would make everything that was sealed with it unreadable for good.
    log_.line("❌ MemorySealer: the stored key is not 32 bytes long; nothing is sealed or opened with it");
    return std::nullopt;
}
} // namespace snipwren
