#include "base/Random.h"

#include <cerrno>
#include <cstdint>
#include <random>

#include <sys/random.h>
#include <unistd.h>

namespace snipwren {
std::string Random::uuid() {
    std::string raw = bytes(16);
    if (raw.size() != 16) { // The generator failed; an identifier made of zeros would not be one.
        std::random_device device;
        raw.resize(16);
        for (char& byte : raw) byte = static_cast<char>(device());
    }
    raw[6] = static_cast<char>((static_cast<std::uint8_t>(raw[6]) & 0x0F) | 0x40);
    raw[8] = static_cast<char>((static_cast<std::uint8_t>(raw[8]) & 0x3F) | 0x80);
    constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        const auto byte = static_cast<std::uint8_t>(raw[i]);
        out += digits[byte >> 4];
        out += digits[byte & 0x0F];
    }
    return out;
}

std::string SystemRandom::bytes(std::size_t count) {
    std::string out(count, '\0');
    for (std::size_t done = 0; done < count;) {
        const std::size_t chunk = count - done < 256 ? count - done : 256; // getentropy's own limit.
        if (getentropy(out.data() + done, chunk) != 0) return {};
        done += chunk;
    }
    return out;
}
} // namespace snipwren
