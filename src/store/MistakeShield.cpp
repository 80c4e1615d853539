#include "store/MistakeShield.h"

#include <utility>

#include "base/Text.h"
#include "store/DatabaseManager.h"

namespace snipwren {
std::vector<MistakeShield::Hit> MistakeShield::review(std::string_view text) {
    const DatabaseManager::Rows rules = database_.fetchRulesConfig();
    const std::u16string wide = toUtf16(text);
    std::vector<Hit> hits;
    const std::lock_guard lock(mutex_);
    std::map<std::string, std::optional<Regex>> inUse;
    for (const auto& rule : rules) {
        if (rule.at("is_enabled") != "1") continue;
        const std::string& pattern = rule.at("pattern");
        auto known = compiled_.extract(pattern);
        if (!known.empty()) {
            inUse.insert(std::move(known));
        } else if (!inUse.contains(pattern)) {
            auto regex = Regex::compile(pattern);
            inUse.emplace(pattern, regex ? std::optional(std::move(*regex)) : std::nullopt);
        }
        const std::optional<Regex>& regex = inUse.at(pattern);
        if (!regex || !regex->contains(wide).value_or(false)) continue;
        hits.push_back(
            {rule.at("id"), rule.at("name"), rule.at("category"), rule.at("description"), rule.at("severity")});
    }
    compiled_ = std::move(inUse); // Patterns that are no longer used are let go.
    return hits;
}

Alert MistakeShield::alert(const Hit& hit) {
    return {Alert::Style::critical,
            "Mistake Shield Block",
            "Snipwren detected a critical issue:\n\nTitle: " + hit.name + "\nDescription: " + hit.description
                + "\n\nWould you like to apply the correction?",
            {"Apply Correction", "Ignore"}};
}
} // namespace snipwren
