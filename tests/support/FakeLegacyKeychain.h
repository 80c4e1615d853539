#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/LegacyKeychain.h"

namespace snipwren {
/// A keychain with the items put into it; counts its calls.
class FakeLegacyKeychain final : public LegacyKeychain {
public:
    Answer read(std::string_view service, std::string_view account) override {
        ++calls;
        const auto found = items.find(name(service, account));
        return found == items.end() ? Answer{} : found->second;
    }
    void remove(std::string_view service, std::string_view account) override {
        ++calls;
        removed.push_back(name(service, account));
        items.erase(removed.back());
    }
    static std::string name(std::string_view service, std::string_view account) {
        return std::string(service) + "/" + std::string(account);
    }

    std::map<std::string, Answer> items;
    std::vector<std::string> removed;
    int calls = 0;
};
} // namespace snipwren
