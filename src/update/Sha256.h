#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace snipwren {
/// SHA-256 of bytes that come in pieces.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    void update(std::string_view bytes);
    /// 64 lower-case hexadecimal digits; call once. Empty when the library failed, which equals no checksum.
    std::string hexDigest();

private:
    struct State;
    std::unique_ptr<State> state_;
};
} // namespace snipwren
