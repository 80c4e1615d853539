#pragma once

#include <string_view>

namespace snipwren {
/// What a key types on a US layout, for events that carry no characters. Key codes 18 to 44; other codes give nothing.
class FallbackKeyTable {
public:
    FallbackKeyTable() = delete;
    static std::string_view characters(int keyCode, bool shift);
};
} // namespace snipwren
