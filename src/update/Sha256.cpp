#include "update/Sha256.h"

#include <array>

#include <openssl/evp.h>

namespace snipwren {
struct Sha256::State {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    bool fine = context && EVP_DigestInit_ex(context, EVP_sha256(), nullptr) == 1;
    ~State() { EVP_MD_CTX_free(context); }
};

Sha256::Sha256() : state_(std::make_unique<State>()) {}
Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes) {
    State& state = *state_;
    state.fine = state.fine && EVP_DigestUpdate(state.context, bytes.data(), bytes.size()) == 1;
}

std::string Sha256::hexDigest() {
    std::array<unsigned char, 32> digest{};
    unsigned length = 0;
    if (!state_->fine || EVP_DigestFinal_ex(state_->context, digest.data(), &length) != 1) return {};
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}
} // namespace snipwren
