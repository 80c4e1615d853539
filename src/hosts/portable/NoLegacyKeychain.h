#pragma once

#include "platform/LegacyKeychain.h"

namespace snipwren {
/// For systems on which no earlier version stored anything: nothing is read, nothing is there to move.
class NoLegacyKeychain final : public LegacyKeychain {
public:
    Answer read(std::string_view, std::string_view) override { return {}; }
    void remove(std::string_view, std::string_view) override {}
};
} // namespace snipwren
