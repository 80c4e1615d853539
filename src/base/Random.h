#pragma once

#include <cstddef>
#include <string>

namespace snipwren {
/// Random bytes and identifiers. Thread safe.
class Random {
public:
    virtual ~Random() = default;
    /// `count` random bytes fit for keys and tokens; empty when the generator fails.
    virtual std::string bytes(std::size_t count) = 0;
    /// A version 4 UUID in upper-case hexadecimal with hyphens.
    std::string uuid();
};

/// The operating system's generator.
class SystemRandom final : public Random {
public:
    std::string bytes(std::size_t count) override;
};
} // namespace snipwren
