#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// What the assistant is to do with a text.
struct AIActionType {
    enum class Kind { rewrite, translate, custom, explain, summarize };
    Kind kind = Kind::explain;
    /// The style, the language or the prompt; empty for the kinds that have none.
    std::string value;

    static AIActionType rewrite(std::string style) { return {Kind::rewrite, std::move(style)}; }
    static AIActionType translate(std::string lang) { return {Kind::translate, std::move(lang)}; }
    static AIActionType custom(std::string prompt) { return {Kind::custom, std::move(prompt)}; }
    static AIActionType explain() { return {Kind::explain, {}}; }
    static AIActionType summarize() { return {Kind::summarize, {}}; }
    /// What the quick-action prompt steps through; the last is the free prompt.
    static std::vector<AIActionType> quickActions(const std::string& userLanguage);

    std::string label() const;
    /// Name of a symbol.
    std::string_view icon() const;
    std::string instruction() const;

    /// An object with one key, the kind, over an object with the associated field: {"rewrite":{"style":"Casual"}}.
    std::string encoded() const;
    static std::optional<AIActionType> decoded(std::string_view json);

    friend bool operator==(const AIActionType&, const AIActionType&) = default;
};
} // namespace snipwren
