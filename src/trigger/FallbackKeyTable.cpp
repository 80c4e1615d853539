#include "trigger/FallbackKeyTable.h"

#include <array>

namespace snipwren {
namespace {
constexpr int firstCode = 18;
struct Key {
    std::string_view plain;
    std::string_view shifted;
};
// The row order is the keyboard's own: codes are not in the order of the digits.
constexpr std::array<Key, 27> keys{{
    {"1", "!"}, {"2", "@"}, {"3", "#"}, {"4", "$"},  {"6", "^"}, {"5", "%"}, {"=", "+"},  {"9", "("}, {"7", "&"},
    {"-", "_"}, {"8", "*"}, {"0", ")"}, {"]", "}"},  {"o", "O"}, {"u", "U"}, {"[", "{"},  {"i", "I"}, {"p", "P"},
    {"", ""},   {"l", "L"}, {"j", "J"}, {"'", "\""}, {"k", "K"}, {";", ":"}, {"\\", "|"}, {",", "<"}, {"/", "?"},
}};
} // namespace

std::string_view FallbackKeyTable::characters(int keyCode, bool shift) {
    const int index = keyCode - firstCode;
    if (index < 0 || index >= static_cast<int>(keys.size())) return {};
    const Key& key = keys[static_cast<std::size_t>(index)];
    return shift ? key.shifted : key.plain;
}
} // namespace snipwren
