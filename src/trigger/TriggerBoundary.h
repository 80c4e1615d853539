#pragma once

#include <optional>

#include "base/Text.h"

namespace snipwren {
/// Whether two slashes after a given character may begin a trigger. ":" and "/" may not precede them, so that no address
/// ("https://note ") and no third slash ever triggers.
class TriggerBoundary {
public:
    TriggerBoundary() = delete;
    static bool isValid(std::optional<char32_t> prev) {
        if (!prev || isWhitespaceOrNewline(*prev)) return true;
        return *prev != U':' && *prev != U'/';
    }
};
} // namespace snipwren
