#pragma once

#include <span>

namespace snipwren {
/// The tables of SnipwrenRules.db and what a new one is filled with.
struct RulesSchema {
    struct Rule {
        const char* id;
        const char* name;
        const char* pattern;
        const char* category;
        const char* description;
        const char* severity;
    };
    struct Exclusion {
        const char* id;
        const char* reasoning;
    };
    /// One name under which an excluded application runs on Linux.
    struct Identity {
        const char* exclusionId;
        const char* kind;
        const char* identity;
    };

    /// In the order in which they are created.
    static std::span<const char* const> tables();
    static std::span<const Rule> rules();
    static std::span<const Exclusion> exclusions();
    static std::span<const Identity> identities();
};
} // namespace snipwren
