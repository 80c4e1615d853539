#include "ai/AIActionType.h"

#include <nlohmann/json.hpp>

namespace snipwren {
namespace {
using Kind = AIActionType::Kind;

struct Coding {
    Kind kind;
    const char* key;
    /// None for the kinds without a value.
    const char* field;
};
constexpr Coding codings[] = {{Kind::rewrite, "rewrite", "style"},
                              {Kind::explain, "explain", nullptr},
                              {Kind::summarize, "summarize", nullptr},
                              {Kind::translate, "translate", "lang"},
                              {Kind::custom, "custom", "prompt"}};
} // namespace

std::vector<AIActionType> AIActionType::quickActions(const std::string& userLanguage) {
    return {rewrite("Professional"), rewrite("Casual"), summarize(), explain(), translate(userLanguage), custom({})};
}

std::string AIActionType::label() const {
    switch (kind) {
    case Kind::rewrite: return "Rewrite (" + value + ")";
    case Kind::translate: return "Translate (" + value + ")";
    case Kind::custom: return "Prompt: " + value;
    case Kind::explain: return "Explain";
    case Kind::summarize: return "Summarize";
    }
    return {};
}

std::string_view AIActionType::icon() const {
    switch (kind) {
    case Kind::rewrite: return "pencil.and.outline";
    case Kind::translate: return "character.book.closed";
    case Kind::custom: return "sparkles";
    case Kind::explain: return "questionmark.circle";
    case Kind::summarize: return "doc.text";
    }
    return {};
}

std::string AIActionType::instruction() const {
    switch (kind) {
    case Kind::rewrite:
        return "Please rewrite the following text to sound extremely " + value
               + ". Preserve the original core intent, but format nicely. Reply ONLY with the rewritten text and "
                 "nothing else (no conversational filler).";
    case Kind::translate:
        return "Please translate the following text to " + value
               + ". Return ONLY the translation without any quote marks or explanations.";
    case Kind::custom: return value;
    case Kind::explain:
        return "Please briefly explain the following text or code snippet clearly. Be concise and precise. Avoid "
               "conversational intros.";
    case Kind::summarize:
        return "Please summarize the following text into key bullet points or a short, impactful paragraph. Avoid "
               "conversational intros.";
    }
    return {};
}

std::string AIActionType::encoded() const {
    nlohmann::json json = nlohmann::json::object();
    for (const Coding& coding : codings) {
        if (coding.kind != kind) continue;
        nlohmann::json& fields = json[coding.key] = nlohmann::json::object();
        if (coding.field) fields[coding.field] = value;
    }
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<AIActionType> AIActionType::decoded(std::string_view text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object() || json.size() != 1) return std::nullopt;
    for (const Coding& coding : codings) {
        const auto fields = json.find(coding.key);
        if (fields == json.end()) continue;
        if (!fields->is_object()) return std::nullopt;
        if (!coding.field) return AIActionType{coding.kind, {}};
        const auto value = fields->find(coding.field);
        if (value == fields->end() || !value->is_string()) return std::nullopt;
        return AIActionType{coding.kind, value->get<std::string>()};
    }
    return std::nullopt;
}
} // namespace snipwren
